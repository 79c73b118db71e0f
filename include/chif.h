// The channel to the server's management processor ("Mox").
#pragma once

#include "fwversion.h"
#include "smif.h"
#include "types.h"
#include "zalci.h"
#include "zalph/str.h"

// What is known of the channel and the processor behind it.
enum ChannelState
{
    ChannelState_Unknown = 0,
    ChannelState_NoHardware = 1,
    ChannelState_NoDriver = 2,  // the hardware is there, its driver is not loaded
    ChannelState_Broken = 3,    // the driver answers, the processor does not
    ChannelState_Open = 4,
    ChannelState_Closed = 5,
};

// Exchanges SMIF packets with the management processor, and offers what they can do. One object serves one thread;
// every wait is on the caller's thread. Constructing it opens the channel when a processor answers, destroying it
// closes the channel.
//
// Unless said otherwise an operation returns TRUE when the processor did what was asked. When no channel is open, the
// exchange fails or the processor refuses, it logs a line, leaves its outputs alone and returns FALSE. Any output
// pointer may be null.
class FLASHLIB_API CChannelInterface
{
  public:
    // Receive timeouts, in the channel library's unit; 0 waits without a limit.
    static const int DefaultRecvTimeout = 20000;
    static const int I2CRecvTimeout = 20000;
    static const int DeviceFlashDispatchRecvTimeout = 60000;

    // How long the commands that take long are tried.
    static const int OverallTimeoutInSeconds = 60;

    // Names of device flash handlers.
    static const char DeviceHandler_TMBR[16];
    static const char DeviceHandler_SignedImage[16];

    CChannelInterface();
    ~CChannelInterface();
    CChannelInterface(const CChannelInterface&) = delete;
    CChannelInterface& operator=(const CChannelInterface&) = delete;

    // Transport. All return 0 or a ZALCISTATUS: 2 when no channel is open, 39 for a bad packet argument, 22 for a reply
    // shorter than its header says, and 42 (ZalCiErrMax), which stands for a SMIF command that failed.

    // Initialises the channel library and looks for the processor, the constructor's work.
    void InitChannelDriver();
    void TerminateChannelDriver();

    // Opens the channel anew. When the channel library reports success and hands out no channel, Open logs that
    // and returns 0.
    int Open();
    void Close();
    BOOL IsOpen() const { return m_hChannel != nullptr; }

    // What the flags and the channel say, without asking the processor; GetUpdatedState looks for it first.
    ChannelState GetState() const;
    ChannelState GetUpdatedState();

    // Stamps the packet with the next sequence number and sends its Length bytes. Tries for half a second when the
    // FIFO is full.
    int Send(SMIFPACKET* pPacket);

    // Receives one packet into a buffer of at least 12 bytes.
    int Recv(SMIFPACKET* pPacket, int PacketBufferSize, int Timeout);

    // Sends a request and receives its reply; up to three replies to earlier requests are discarded before it and leave
    // no trace. What the reply is too short for keeps the value that the caller gave it. SmifCommand also fails with 42
    // when the reply's ErrorCode is not 0, which SmifCommandNoErr leaves to the caller.
    int SmifCommandNoErr(SMIFPACKET* pRequest, SMIFPACKET* pResponse, int ResponseBufferSize, int Timeout);
    int SmifCommand(SMIFPACKET* pRequest, SMIFPACKET* pResponse, int ResponseBufferSize, int Timeout);

    // SmifCommandNoErr for commands that take long: empty receives and replies to earlier requests are put up with
    // until that many seconds have passed.
    int SmifCommandNoErrWithOverallTimeout(SMIFPACKET* pRequest, SMIFPACKET* pResponse, int ResponseBufferSize,
                                           int Seconds);

    // Discovery

    // TRUE when the processor's PCI device is there, with exactly three functions.
    BOOL FindDevice();

    // Opens the channel and asks the processor for its version; leaves the channel open when it answers.
    void CheckDriver();

    // One round trip to the processor.
    BOOL VerifySMIF();

    // After a firmware update: waits up to a minute for a processor that answers, and reads its version. The outcome
    // shows in GetState.
    void VerifyFirmwareIsAlive();

    // Reads the processor's firmware version, date and generation, which are 0 after a failure.
    BOOL UpdateMOXVersion();

    // Asks the processor to reset itself.
    BOOL RebootMOX();

    // Waits for the processor to come back from a reset, between 22 seconds and about a minute, and leaves the channel
    // open. FALSE when it does not answer by then, which need not be fatal.
    BOOL WaitForReboot();

    // What UpdateMOXVersion read last.
    const CFwVersion& GetMOXFwVersion() const { return m_MOXVersion; }
    int GetMOXMajorVersion() const { return m_MOXVersion.Major; }
    int GetMOXMinorVersion() const { return m_MOXVersion.Minor; }
    int GetMOXGeneration() const { return m_Generation; }

    // Generation, major, minor and a fourth number in one value that compares like them: a byte each, generation on
    // top. Of the processor's firmware, with the revision as the fourth.
    static ULONG MakeMOXCombinedVersion(int Generation, int Major, int Minor, int Revision);
    ULONG GetMOXCombinedVersion() const;

    // Hardware registers

    // One byte of a register file: Operation is an IoAccessOp, Index counts bytes.
    BOOL ReadIoByte(int Operation, int Index, UCHAR* pValue);
    BOOL WriteIoByte(int Operation, int Index, UCHAR Value);

    // The same for one register file each. They log the value too.
    BOOL ReadMEMID(int Index, UCHAR* pValue);
    BOOL ReadGPI(int Index, UCHAR* pValue);
    BOOL ReadGPO(int Index, UCHAR* pValue);
    BOOL ReadCPLD(int Index, UCHAR* pValue);
    BOOL ReadXPLD(int Index, UCHAR* pValue);
    BOOL WriteGPO(int Index, UCHAR Value);
    BOOL WriteCPLD(int Index, UCHAR Value);
    BOOL WriteXPLD(int Index, UCHAR Value);

    // Writes up to 32 bytes to an I2C device, then reads exactly ResponseDataLength, up to 32. What is read is not
    // looked at when that is 0 or pResponseData is null. More bytes to write are not sent.
    BOOL I2CTransaction(int Bus, int Address, const UCHAR* pRequestData, int RequestDataLength, UCHAR* pResponseData,
                        int ResponseDataLength);

    // Devices: DeviceID is a DeviceID_.. number.

    // Stores the flag bits and 48 bytes of status.
    BOOL GetDeviceStatus(int DeviceID, ULONG* pFlagBits, UCHAR* pStatusData);

    // Stops and restarts a device's own traffic on its bus. Only the low 16 bits of Timeout count; firmware that does
    // not know it is asked without.
    BOOL HaltDevice(int DeviceID, int Timeout);
    BOOL ResumeDevice(int DeviceID);

    // Chooses the kind of reset that the host gets next, a HostResetMode.
    BOOL SetHostResetMode(int Mode);
    BOOL ScheduleColdBoot();
    BOOL ScheduleAuxPowerCycle();

    // Device flash. All return the processor's answer, a DeviceFlashStatus, or -1 (DeviceFlashStatus_Failed) when
    // nothing could be exchanged. Handler names count up to 15 characters; null is an empty one. Open, upload an image,
    // query until the status is no longer DeviceFlashStatus_Busy; reset to abandon.
    int OpenDeviceFlash(const char* pszHandler);
    int QueryDeviceFlashStatus(const char* pszHandler);
    int ResetDeviceFlash(const char* pszHandler);

    // Uploads up to 1024 bytes that stand at Offset in the image. More are not sent: -1.
    int UploadDeviceFlashData(const char* pszHandler, int Offset, const UCHAR* pData, int DataLength);

    // Uploads a whole image in pieces of 1024 bytes. Stops at the first piece whose status is not 0 and returns that.
    int UploadDeviceFlashData(const char* pszHandler, const UCHAR* pData, int DataLength);

    // Both with an empty handler. An empty handler for the forms above is nullptr; NULL may be taken for an offset.
    int UploadDeviceFlashData(int Offset, const UCHAR* pData, int DataLength);
    int UploadDeviceFlashData(const UCHAR* pData, int DataLength);

    // Hands a value and up to 1024 bytes to the handler, none when pInputData is null. The output buffer must hold 1024
    // bytes: as many as the reply says are stored, and that number as the reply has it. Waits up to
    // DeviceFlashDispatchRecvTimeout.
    int DeviceFlashDispatch(const char* pszHandler, ULONG InputValue, ULONG* pOutputValue, const UCHAR* pInputData,
                            int InputDataLength, UCHAR* pOutputData, int* pOutputDataLength);

    // The same for a query, which always stores 1024 bytes of output. Waits up to OverallTimeoutInSeconds.
    int QueryDeviceFlashHandler(const char* pszHandler, ULONG InputValue, ULONG* pOutputValue, const UCHAR* pInputData,
                                int InputDataLength, UCHAR* pOutputData, int* pOutputDataLength);

    // Resets the handler, and stores the value that it answers with.
    int ResetDeviceFlashHandler(const char* pszHandler, ULONG* pOutputValue);

    // Inventory

    // The power PIC: type; version, and whether its boot loader runs.
    BOOL GetPowerPICType(UINT8* pPICType);
    BOOL GetPowerPICVersion(int* pMajor, int* pMinor, int* pPass, BOOL* pbBootLoaderRunning);

    // The Tamberline controller: family; version of its firmware, of its boot loader.
    BOOL GetTamberlineFamily(UINT8* pFamily);
    BOOL GetTamberlineVersion(int* pMajor, int* pMinor, int* pPass);
    BOOL GetTamberlineBootloaderVersion(int* pMajor, int* pMinor);

    // 0 on failure.
    int GetNVMeBackplaneCount();

    // Of a backplane 0 .. 3, whatever the count is. The identifier has 16 bytes. While the boot loader runs, the
    // version is the loader's, with minor 0.
    BOOL GetNVMeBackplaneInfo(int index, UINT8* pType, UINT8* pId);
    BOOL GetNVMeBackplaneVersion(int index, int* pMajor, int* pMinor, BOOL* pbBootLoaderRunning);

    // Fills up to eight entries of each array with the power supplies' identifiers, and stores their number. Data4
    // points to 8 bytes each, owned by the object; its next ReadPSInfo that succeeds overwrites them.
    BOOL ReadPSInfo(UINT32* Data1, UINT16* Data2, UINT16* Data3, UINT8** Data4, int* count);

  private:
    BOOL m_bBroken;  // the driver answered, the processor did not
    BOOL m_bDriverFound;
    BOOL m_bHardwareFound;   // the PCI device was seen
    CStr m_sDeviceID;        // not used
    ZALCIHANDLE m_hChannel;  // null while no channel is open
    WORD m_NextSequenceNumber;
    int m_Generation;
    CFwVersion m_MOXVersion;
    SMIFRSP_PS_INFO m_PSInfo;  // what the last power supply query handed out
};
