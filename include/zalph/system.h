// Platform services: operating system, physical memory, server event log, and the identity of the server.
#pragma once

#include "types.h"
#include "zalph/evtlog.h"
#include "zalph/str.h"

// The services every host platform offers, and the questions about the server that are answered on top of them. Every
// question reads the hardware anew unless said otherwise. Where the data is absent the answer is an empty text or 0.
class FLASHLIB_API CSystemCommon
{
  public:
    virtual ~CSystemCommon();

    // What the host runs.
    virtual CStr GetOSType() = 0;
    virtual CStr GetOSName() = 0;
    virtual CStr GetOSVersionString() = 0;
    // Name and version in one text, "Linux version 0.0".
    virtual CStr GetOSNameAndVersion();

    // Restarts the host.
    virtual BOOL Reboot() = 0;

    // Reads size bytes at a physical address; FALSE when they can't be read.
    virtual BOOL ReadPhysicalMemory(DWORD address, BYTE* buffer, int size) = 0;

    // Write a flash event, a maintenance note, into the server event log. Texts are cut to 227 characters. Return what
    // LogEventToVRL returns.
    virtual int LogFlashEventToVRL(const CStr& text);
    virtual int LogMaintenanceNoteToVRL(const CStr& text);

    // Writes one entry of wEvtLength bytes (above 256 ends the process), stamped with the local time. TRUE when the
    // management controller accepted it.
    virtual BOOL LogEventToVRL(_evtLogEntry* entry) = 0;

    // Firmware environment variables. The first form is TRUE only when the variable is exactly size bytes long.
    virtual BOOL GetEV(const char* name, BYTE* buffer, int size) = 0;
    virtual BOOL GetEV(const char* name, BYTE* buffer, int size, int& length) = 0;
    virtual BOOL SetEV(const char* name, const BYTE* buffer, int size) = 0;

    // Name of the server's product, without leading and trailing spaces.
    CStr GetProductName();

    // Family of the system ROM, from its flash image header, else from SMBIOS. Kept for the life of the process once
    // it is known.
    CStr GetROMFamily();

    // SMBIOS's answers; see CSMBIOS.
    CStr GetROMDate();
    CStr GetROMVersion();
    CStr GetRDDate();
    CStr GetBBDate();
    CStr GetOEMROMName();
    CStr GetOEMROMDate();
    CStr GetPALType(int index);
    WORD GetPALVersion(int index);
    BYTE GetTPMStatus();
    CStr GetSystemID();
    CStr GetPlatformID();
    WORD GetPlatformIDValue();

    // TRUE when the product name says that the server is a blade.
    BOOL IsBlade();
};

// The services on this host: physical memory through the ROM utility driver, the event log through IPMI. Firmware
// environment variables are not available here: every GetEV and SetEV returns FALSE.
class FLASHLIB_API CSystem : public CSystemCommon
{
  public:
    ~CSystem() override;

    CStr GetOSType() override;           // "Linux"
    CStr GetOSName() override;           // "Linux"
    CStr GetOSVersionString() override;  // "0.0"

    // Returns TRUE and does nothing.
    BOOL Reboot() override;

    // Opens the ROM utility driver when cruFd is negative, and leaves it open for the process.
    BOOL ReadPhysicalMemory(DWORD address, BYTE* buffer, int size) override;

    BOOL LogEventToVRL(_evtLogEntry* entry) override;

    BOOL GetEV(const char* name, BYTE* buffer, int size) override;
    BOOL GetEV(const char* name, BYTE* buffer, int size, int& length) override;
    BOOL SetEV(const char* name, const BYTE* buffer, int size) override;

    // One IPMI request of requestLength bytes to the management controller and its response (IPMI 2.0). Stores the
    // response's length, without the completion code, in *responseLength and the completion code in *completionCode
    // (each may be null), and at most capacity bytes of it in response. Waits up to 10 seconds. Returns 1, or 0 when
    // nothing could be exchanged.
    int IpmiCommand(int netFunction, int command, void* request, int requestLength, void* response, int capacity,
                    int* responseLength, int* completionCode);
};
