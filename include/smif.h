// SMIF packets: what goes to the management processor and what comes back. Little-endian, without padding. Reserved
// fields of a request are 0.
#pragma once

#include "types.h"

// Command codes. A command's request is SMIFREQ_.., its reply SMIFRSP_.. of the same name.
#define SMIFCMD_GET_STATUS              2
#define SMIFCMD_MOXFLASH_COMMAND        80
#define SMIFCMD_I2C_TRANSACTION         114
#define SMIFCMD_IO_ACCESS               136
#define SMIFCMD_DEVICE_FLASH            137
#define SMIFCMD_DEVICE_CONTROL          139
#define SMIFCMD_DEVICE_CONTROL_EX       140
#define SMIFCMD_HOST_RESET              152
#define SMIFCMD_GET_TMBLN_INFO          275
#define SMIFCMD_PS_INFO                 285
#define SMIFCMD_GET_POWERPIC_INFO       294
#define SMIFCMD_GET_NVME_BACKPLANE_INFO 298

#pragma pack(push, 1)

// The header of every packet.
struct SMIFHDR
{
    WORD Length;    // bytes of the whole packet
    WORD Sequence;  // set by the transport; the reply carries its request's
    WORD Command;
    WORD ServiceType;  // 0
};
FLASHLIB_LAYOUT(SMIFHDR, 8);

// The header alone: what all requests derive from, and a whole request without parameters.
struct SMIFPACKET : SMIFHDR
{
};
FLASHLIB_LAYOUT(SMIFPACKET, 8);

// What all replies derive from.
struct SMIFRESPONSE : SMIFPACKET
{
    DWORD ErrorCode;  // 0: the processor executed the command
};
FLASHLIB_LAYOUT(SMIFRESPONSE, 12);

// Status of the management processor

// A packed date and time.
struct SMIFDATE
{
    DWORD Second : 6;
    DWORD Minute : 6;
    DWORD Hour : 5;
    DWORD Day : 5;
    DWORD Month : 4;
    DWORD Year : 6;  // since 1990
};
FLASHLIB_LAYOUT(SMIFDATE, 4);

// Asks for the status, as a sign of life too.
struct SMIFREQ_GET_STATUS : SMIFPACKET
{
};
FLASHLIB_LAYOUT(SMIFREQ_GET_STATUS, 8);

// The processor's firmware and hardware.
struct SMIFRSP_GET_STATUS : SMIFRESPONSE
{
    WORD StatusBits;
    WORD MaxUsers;
    BYTE FwVersionMinor;
    BYTE FwVersionMajor;
    SMIFDATE FwDate;
    DWORD DiagErrorStatus;
    SMIFDATE CurrentDate;
    DWORD HardwareVersion;
    char SerialNumber[20];
    WORD CableStatus;
    DWORD LastEvent;
    DWORD NvramChangeStatus;
    DWORD DiagErrorMask;
    BYTE KORClass;
    BYTE KORSubClass;
    BYTE RemoteConsoleInUse;
    BYTE Application;
    BYTE Reserved[28];
};
FLASHLIB_LAYOUT(SMIFRSP_GET_STATUS, 100);

// The management processor's own firmware

// Operations on the processor's own firmware.
enum MOXFlashOp
{
    MOXFlashOp_Unknown = 0,
    MOXFlashOp_Mox1_Open = 1,
    MOXFlashOp_Mox1_Close = 2,
    MOXFlashOp_Reset = 3,
    MOXFlashOp_NOP = 4,
    MOXFlashOp_Open = 5,
    MOXFlashOp_Close = 6,
    MOXFlashOp_Commit = 7,
    MOXFlashOp_Query = 8,
};

// One operation, without parameters.
struct SMIFREQ_MOXFLASH_COMMAND : SMIFPACKET
{
    DWORD Operation;  // MOXFlashOp
};
FLASHLIB_LAYOUT(SMIFREQ_MOXFLASH_COMMAND, 12);

// The firmware that is there, and how far its flashing is.
struct SMIFRSP_MOXFLASH_COMMAND : SMIFRESPONSE
{
    DWORD FlashSectorSize;
    char Date[20];
    char Time[20];
    char Number[10];
    char Pass[10];
    char Name[20];
    BYTE ASICMajor;
    BYTE ASICMminor;
    BYTE CPLDVersion;
    BYTE XPLDVersion;
    DWORD Reserved;
    char Bootleg[80];
    BYTE FlashManufacturer;
    BYTE FlashDevice;
    BYTE FlashState;
    BYTE FlashStage;
    BYTE FlashPercent;
};
FLASHLIB_LAYOUT(SMIFRSP_MOXFLASH_COMMAND, 189);

// I2C transactions

// Writes to a device on an I2C bus, then reads from it.
struct SMIFREQ_I2C_TRANSACTION : SMIFPACKET
{
    DWORD Reserved;
    DWORD Magic[2];  // seven letters and a NUL, without which the processor refuses the request
    WORD Address;    // of the device
    BYTE Bus;
    BYTE WriteLength;  // bytes
    BYTE ReadLength;   // bytes
    BYTE Data[32];     // to write
};
FLASHLIB_LAYOUT(SMIFREQ_I2C_TRANSACTION, 57);

// What was read.
struct SMIFRSP_I2C_TRANSACTION : SMIFRESPONSE
{
    BYTE Reserved1[8];
    WORD Address;
    BYTE Bus;
    BYTE Reserved2;
    BYTE ReadLength;  // bytes that were read
    BYTE Data[32];
};
FLASHLIB_LAYOUT(SMIFRSP_I2C_TRANSACTION, 57);

// Hardware registers, one byte at a time

// Reads (Get) and writes (Put) of a register file.
enum IoAccessOp
{
    IoAccessOp_GetMEMID = 1,
    IoAccessOp_GetGPI = 2,
    IoAccessOp_GetCPLD = 3,
    IoAccessOp_PutGPO = 4,
    IoAccessOp_PutCPLD = 5,
    IoAccessOp_GetGPIEN = 6,
    IoAccessOp_GetGPIST = 7,
    IoAccessOp_PutGPIEN = 8,
    IoAccessOp_PutGPIST = 9,
    IoAccessOp_GetGPO = 10,
    IoAccessOp_GetXPLD = 11,
    IoAccessOp_PutXPLD = 12,
};

// Reads or writes one byte.
struct SMIFREQ_IO_ACCESS : SMIFPACKET
{
    DWORD Operation;  // IoAccessOp
    DWORD Index;
    DWORD _Reserved1;
    DWORD _Status;
    BYTE _Reserved2[3];
    BYTE Value;
};
FLASHLIB_LAYOUT(SMIFREQ_IO_ACCESS, 28);

// The byte that was read.
struct SMIFRSP_IO_ACCESS : SMIFRESPONSE
{
    DWORD _Index;
    DWORD _Reserved1;
    DWORD Status;  // 0: done
    BYTE _Reserved2[3];
    BYTE Value;
};
FLASHLIB_LAYOUT(SMIFRSP_IO_ACCESS, 28);

// Devices that the management processor looks after

// Steps of a device's update.
enum DeviceFlashOp
{
    DevFlashOp_Query = 0,
    DevFlashOp_Open = 1,
    DevFlashOp_Reset = 2,
    DevFlashOp_Data = 3,
    DevFlashOp_Dispatch = 4,
    DevFlashOp_SubQuery = 5,
    DevFlashOp_SubReset = 6,
};

// State of a device's update.
enum DeviceFlashStatus
{
    DeviceFlashStatus_Failed = -1,
    DeviceFlashStatus_OK = 0,
    DeviceFlashStatus_Data = 1,
    DeviceFlashStatus_Busy = 2,
    DeviceFlashStatus_Error = 3,
    DeviceFlashStatus_Overflow = 4,
};

// One step, with up to 1024 bytes of the image or for the handler.
struct SMIFREQ_DEVICE_FLASH : SMIFPACKET
{
    DWORD _ErrorCode;
    DWORD _Status;
    DWORD Operation;   // DeviceFlashOp
    DWORD Offset;      // bytes from the start of the image
    DWORD DataLength;  // bytes of Data in use
    DWORD In;
    DWORD _Out;
    DWORD Reserved[2];
    char Handler[16];  // NUL-terminated
    BYTE Data[1024];
};
FLASHLIB_LAYOUT(SMIFREQ_DEVICE_FLASH, 1084);

// State of the update, and what the handler gives back.
struct SMIFRSP_DEVICE_FLASH : SMIFRESPONSE
{
    DWORD Status;  // DeviceFlashStatus
    DWORD _Operation;
    DWORD _Offset;
    DWORD DataLength;  // bytes
    DWORD _In;
    DWORD Out;
    DWORD Reserved[2];
    char _Handler[16];
    BYTE Data[1024];
};
FLASHLIB_LAYOUT(SMIFRSP_DEVICE_FLASH, 1084);

// Operations on a device.
enum DeviceControlOp
{
    DevCtlOp_GetStatus = 0,
    DevCtlOp_Halt = 1,
    DevCtlOp_Resume = 2,
};

// Device numbers.
enum
{
    DeviceID_PowerPIC = 1,
    DeviceID_DriveBackplane = 2,
};

// One operation on a device.
struct SMIFREQ_DEVICE_CONTROL : SMIFPACKET
{
    WORD DeviceID;
    WORD Operation;  // DeviceControlOp
};
FLASHLIB_LAYOUT(SMIFREQ_DEVICE_CONTROL, 12);

// The device's status.
struct SMIFRSP_DEVICE_CONTROL : SMIFRESPONSE
{
    DWORD FlagBits;
    BYTE StatusData[48];
};
FLASHLIB_LAYOUT(SMIFRSP_DEVICE_CONTROL, 64);

// The same with a timeout, which older firmware does not know.
struct SMIFREQ_DEVICE_CONTROL_EX : SMIFPACKET
{
    WORD DeviceID;
    WORD Operation;  // DeviceControlOp
    DWORD Timeout;
    DWORD Reserved;
};
FLASHLIB_LAYOUT(SMIFREQ_DEVICE_CONTROL_EX, 20);

// The device's status, with that time.
struct SMIFRSP_DEVICE_CONTROL_EX : SMIFRESPONSE
{
    DWORD FlagBits;
    DWORD Timeout;
    BYTE StatusData[48];
};
FLASHLIB_LAYOUT(SMIFRSP_DEVICE_CONTROL_EX, 68);

// The host's next reset

// Kinds of reset.
enum HostResetMode
{
    HostResetMode_Default = 0,
    HostResetMode_ColdBoot = 1,
    HostResetMode_AuxPowerCycle = 2,
};

// Chooses the kind of reset that the host gets next.
struct SMIFREQ_HOST_RESET : SMIFPACKET
{
    DWORD _ErrorCode;
    WORD Mode;  // HostResetMode
};
FLASHLIB_LAYOUT(SMIFREQ_HOST_RESET, 14);

// The kind that is chosen.
struct SMIFRSP_HOST_RESET : SMIFRESPONSE
{
    WORD Mode;
};
FLASHLIB_LAYOUT(SMIFRSP_HOST_RESET, 14);

// Inventory

// Asks for the Tamberline controller.
struct SMIFREQ_GET_TMBLN_INFO : SMIFPACKET
{
};
FLASHLIB_LAYOUT(SMIFREQ_GET_TMBLN_INFO, 8);

// Its family and versions.
struct SMIFRSP_GET_TMBLN_INFO : SMIFRESPONSE
{
    DWORD StatusAndVersion;   // bits 12 to 15: major, 8 to 11: minor
    DWORD StatusAndFamily;    // bits 8 to 15: family, 0 to 6: pass
    DWORD BootloaderVersion;  // bits 12 to 15: major, 8 to 11: minor
};
FLASHLIB_LAYOUT(SMIFRSP_GET_TMBLN_INFO, 24);

// Identifier of a power supply.
struct PS_GUID
{
    DWORD Data1;  // 0: no power supply from here on
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};
FLASHLIB_LAYOUT(PS_GUID, 16);

// Asks for the power supplies.
struct SMIFREQ_PS_INFO : SMIFPACKET
{
};
FLASHLIB_LAYOUT(SMIFREQ_PS_INFO, 8);

// Up to eight of them.
struct SMIFRSP_PS_INFO : SMIFRESPONSE
{
    PS_GUID ps_data[8];
};
FLASHLIB_LAYOUT(SMIFRSP_PS_INFO, 140);

// Asks for the power PIC.
struct SMIFREQ_GET_POWERPIC_INFO : SMIFPACKET
{
};
FLASHLIB_LAYOUT(SMIFREQ_GET_POWERPIC_INFO, 8);

// Its version, type and registers.
struct SMIFRSP_GET_POWERPIC_INFO : SMIFRESPONSE
{
    WORD FwVersion;  // bits 12 to 15: major, 8 to 11: minor, 0 to 7: pass
    WORD uCType;
    WORD Data[128];  // bit 3 of the first word: the boot loader is running
};
FLASHLIB_LAYOUT(SMIFRSP_GET_POWERPIC_INFO, 272);

// One NVMe backplane.
struct NVME_BACKPLANE_INFO
{
    BYTE FwVersion;
    BYTE FwBuild;
    BYTE LoaderVersion;
    BYTE Status;  // bit 0: the boot loader is running
    BYTE Segment;
    BYTE Address;
    BYTE Type;
    BYTE _reserved1;
    BYTE Id[16];
    BYTE _reserved2[64];
};
FLASHLIB_LAYOUT(NVME_BACKPLANE_INFO, 88);

// Asks for the NVMe backplanes.
struct SMIFREQ_GET_NVME_BACKPLANE_INFO : SMIFPACKET
{
};
FLASHLIB_LAYOUT(SMIFREQ_GET_NVME_BACKPLANE_INFO, 8);

// Their number, and what each one is.
struct SMIFRSP_GET_NVME_BACKPLANE_INFO : SMIFRESPONSE
{
    enum
    {
        MaxBackplanes = 4,
    };

    DWORD Count;
    NVME_BACKPLANE_INFO BackplaneInfo[MaxBackplanes];
};
FLASHLIB_LAYOUT(SMIFRSP_GET_NVME_BACKPLANE_INFO, 368);

#pragma pack(pop)
