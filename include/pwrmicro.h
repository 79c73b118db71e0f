// The server's power controller, a PIC microcontroller on an I2C bus behind the management processor: its registers,
// and the programming of its microcode from an Intel HEX image.
#pragma once

#include "types.h"

class CChannelInterface;

// Families of controllers.
enum PowerControllerType
{
    ControllerType_Unknown = 0,
    ControllerType_Opal = 1,
    ControllerType_Zephyra = 2,
    ControllerType_Quillon = 3,
    ControllerType_Brisk = 4,
};

// The register layout that a controller presents: Quillon and Brisk act as Opal or as Zephyra.
enum PowerControllerRegisterSet
{
    RegisterSet_Unknown = 0,
    RegisterSet_Opal = 1,
    RegisterSet_Zephyra = 2,
    RegisterSet_Unavailable = 3,  // while a Brisk controller's boot loader runs
};

// Registers of every controller.
enum
{
    PowerRegister_Status = 0,      // bits 0 to 2: programming, 3: boot loader, 8 to 11: minor, 12 to 15: major version
    PowerRegister_MiscData = 2,    // high byte: PIC family, low byte: system type
    PowerRegister_Flags = 0x006A,  // bits 6 and 7: mode, 1 acting as Opal, 2 acting as Zephyra
};

const UINT16 PowerStatus_Programming = 0x0007;  // 0: done, 7: in progress, else an error
const UINT16 PowerStatus_BootLoader = 0x0008;   // ready for an update

// A register to save and restore. A list of them ends with Register -1.
struct CRegisterList
{
    int Register;  // its number
    UINT16 Mask;   // the bits that count
};

// Drives the power controller. An update is: identify the controller (DetermineControllerType or SetControllerType),
// SaveState, HaltDevice, Unlock, FlashHex, Reset, RestoreState, ResumeDevice. The caller chooses the order; a step that
// fails undoes nothing.
//
// Unless said otherwise an operation returns TRUE when it was done. On failure it logs a line, leaves its outputs alone
// and returns FALSE.
class FLASHLIB_API CPowerMicro
{
  public:
    // The channel stays the caller's and must outlive the object. Reading HEX texts without flashing needs none.
    explicit CPowerMicro(CChannelInterface* pChannel);
    ~CPowerMicro();

    // Where the controller is. Set both before its registers are asked; what is not set by then, the register set that
    // it presents decides.
    void SetBus(int Bus) { m_Bus = Bus; }
    void SetAddress(int Address) { m_Address = Address; }

    // What the controller was identified, or set, as.
    PowerControllerType GetControllerType() const { return m_ControllerType; }
    PowerControllerRegisterSet GetRegisterSet() const { return m_RegisterSet; }

    // Writes up to 32 bytes to the controller, then reads exactly ResponseDataLength, up to 32. FALSE
    // when the transaction fails.
    BOOL I2CTransaction(const UINT8* pRequestData, int RequestDataLength, UINT8* pResponseData, int ResponseDataLength);

    // One 16-bit register, with checksums both ways; tried as often as the register set asks for.
    BOOL ReadRegister(int Register, UINT16* pValue);
    BOOL WriteRegister(int Register, UINT16 Value);

    // Identifies the controller by its registers, and sets up for it. Tamberline controllers are not supported.
    BOOL DetermineControllerType();

    // Asks for the controller's type alone; ControllerType_Unknown on failure.
    PowerControllerType ReadDeviceControllerType();

    // Sets up for a controller whose type the caller knows; asks it which register set it presents.
    BOOL SetControllerType(PowerControllerType Type);

    // Sets bus and address where they are not set, the special registers and the number of tries.
    BOOL SetupBasedOnRegisterSet();

    // Any pointer may be null; the version is stored when both of its pointers are given.
    BOOL GetVersion(BOOL* pbBootLoaderRunning, int* pMajorVersion, int* pMinorVersion);
    BOOL GetBootLoaderMode(BOOL* pbBootLoaderRunning) { return GetVersion(pbBootLoaderRunning, nullptr, nullptr); }

    // Saves the registers that an update must not lose in the object, and writes them back.
    BOOL SaveState();
    BOOL RestoreState();

    // The same for one list, null for none. pValue walks over one value for each entry.
    BOOL SaveRegisters(CRegisterList* pList, UINT16*& pValue);
    BOOL RestoreRegisters(CRegisterList* pList, UINT16*& pValue);

    // Stops the management processor's own traffic to the controller, then waits five seconds; and restarts it.
    BOOL HaltDevice();
    BOOL ResumeDevice();

    // Brings the controller into its boot loader. Takes up to 45 seconds and more when the controller does not answer.
    BOOL Unlock();

    // Brings the controller back into its application. Takes up to 12 seconds and more.
    BOOL Reset();

    // Sends one HEX record in binary, count to checksum and up to 32 bytes, to the boot loader and waits for it to be
    // programmed. 0, or the programming status 7 when that does not end, or 0xFFFF.
    UINT16 WriteData(const UINT8* pData, int DataLength);

    // Reads an Intel HEX text of ImageLength bytes, which need not be NUL-terminated, up to its end-of-file record.
    // Digits are upper-case; a ';' starts a comment to the end of the line. With bUpload each record goes through
    // WriteData. With a buffer, which is zeroed first, data of the first 64 KiB is stored in it; data that reaches the
    // buffer's last byte is refused. The log tells the offset of a record that is refused; those before it are done.
    BOOL HexWorker(const char* pHexImage, int ImageLength, BOOL bUpload, UINT8* pBinaryImageBuffer,
                   int BinaryImageBufferSize);

    // HexWorker to program the microcode, to check a text, to convert it into binary.
    BOOL FlashHex(const char* pHexImage, int ImageLength)
    {
        return HexWorker(pHexImage, ImageLength, TRUE, nullptr, 0);
    }
    BOOL ValidateHex(const char* pHexImage, int ImageLength)
    {
        return HexWorker(pHexImage, ImageLength, FALSE, nullptr, 0);
    }
    BOOL ExtractHex(const char* pHexImage, int ImageLength, UINT8* pBinaryImageBuffer, int BinaryImageBufferSize)
    {
        return HexWorker(pHexImage, ImageLength, FALSE, pBinaryImageBuffer, BinaryImageBufferSize);
    }

  protected:
    // The state of the update, which derived classes may look at.
    CChannelInterface* m_pChannel;  // not owned
    PowerControllerType m_ControllerType;
    PowerControllerRegisterSet m_RegisterSet;
    int m_Bus;              // -1: not set
    int m_Address;          // -1: not set
    int m_KeyholeRegister;  // takes the value that unlocks the boot loader; 0: none
    int m_ControlRegister;
    int m_MaxRetries;                  // tries of a register access and of a programming step
    CRegisterList* m_RegisterList[2];  // what was saved, in this order; null for none
    UINT16 m_SavedRegisters[64];

  private:
    static constexpr int RetryDelay = 50000;  // microseconds between tries

    // Reads the status register; a failure is logged as the method's.
    BOOL ReadStatus(const char* pszMethod, UINT16* pStatus);

    // Takes the register set and logs what the controller is; FALSE, without a line, when the set is unknown.
    BOOL TakeRegisterSet(const char* pszMethod, PowerControllerRegisterSet Set);

    // Asks a Quillon or Brisk controller which one it presents.
    BOOL ReadRegisterSet();

    // The steps of Unlock and Reset.
    void OpenKeyhole();
    BOOL BootLoaderStarts();
    BOOL SendResetPacket();
};
