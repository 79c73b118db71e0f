#include <unistd.h>

#include <ctime>

#include "chif.h"
#include "debug.h"
#include "pwrmicro.h"

namespace
{

// Seconds.
const unsigned int HaltDelay = 5;
const unsigned int SettleDelay = 2;  // after the controller was sent into or out of its boot loader
const std::time_t ModeTimeout = 20;  // for it to get there

// Microseconds.
const useconds_t ModePollDelay = 500000;
const useconds_t ProgrammingPollDelay = 100000;

const int UnlockRounds = 2;
const int ResetPolls = 20;
const int ProgrammingPolls = 6;

const UINT16 ControlRegister_Update = 0x0080;
const UINT16 KeyholeValue = 0x4D2B;
const UINT16 WholeRegister = 0xFFFF;

const UINT16 WriteData_Failed = 0xFFFF;

// An end-of-file record in binary.
const UINT8 ResetPacket[] = {0x00, 0x00, 0x00, 0x01, 0xFF};

// kept: register-order. The lists are not const because SaveRegisters and RestoreRegisters take them so.

CRegisterList OpalSavedRegisterList[] = {
    {0x16, 0x0001},
    {0x1C, WholeRegister},
    {0x1E, WholeRegister},
    {0x20, WholeRegister},
    {0x22, WholeRegister},
    {0x24, WholeRegister},
    {0x26, WholeRegister},
    {0x28, WholeRegister},
    {0x2A, WholeRegister},
    {0x2C, WholeRegister},
    {0x2E, WholeRegister},
    {0x30, WholeRegister},
    {0x32, WholeRegister},
    {0x34, WholeRegister},
    {0x36, WholeRegister},
    {0x38, WholeRegister},
    {0x3A, WholeRegister},
    {0x3C, WholeRegister},
    {0x3E, WholeRegister},
    {0x40, WholeRegister},
    {0x42, WholeRegister},
    {0x44, WholeRegister},
    {0x46, WholeRegister},
    {0x4E, WholeRegister},
    {0x52, WholeRegister},
    {0x50, WholeRegister},
    {0x5A, WholeRegister},
    {0x1A, WholeRegister},
    {-1, 0},
};

CRegisterList ZephyraSavedRegisterList[] = {
    {0x2C, WholeRegister}, {0x30, WholeRegister}, {0x2E, WholeRegister},
    {0x1C, WholeRegister}, {0x1A, WholeRegister}, {-1, 0},
};

CRegisterList QuillonSavedRegisterList[] = {
    {0x6C, WholeRegister}, {0x6E, WholeRegister}, {0x70, WholeRegister}, {0x72, WholeRegister}, {-1, 0},
};

CRegisterList BriskSavedRegisterList[] = {
    {0x02, WholeRegister},
    {0x6C, WholeRegister},
    {0x6E, WholeRegister},
    {0x70, WholeRegister},
    {0x72, WholeRegister},
    {0x76, WholeRegister},
    {-1, 0},
};

bool InTime(std::time_t start)
{
    return std::time(nullptr) - start <= ModeTimeout;
}

}  // namespace

BOOL CPowerMicro::Unlock()
{
    _DebugPrintf("CPowerMicro::Unlock()\n");
    UINT16 status = 0;
    if (!ReadStatus("Unlock", &status)) return FALSE;
    if (status & PowerStatus_BootLoader) {
        _DebugPrintf("CPowerMicro::Unlock: Already unlocked\n");
        return TRUE;
    }
    if (m_KeyholeRegister == 0) {
        _DebugPrintf("CPowerMicro::Unlock: Keyhole register not defined\n");
        return FALSE;
    }

    for (int round = 0; round < UnlockRounds; round++) {
        OpenKeyhole();
        if (BootLoaderStarts()) return TRUE;
    }
    _DebugPrintf("CPowerMicro::Unlock: Failed\n");
    return FALSE;
}

void CPowerMicro::OpenKeyhole()
{
    // A step that fails does not stop the next: the controller's status tells whether the keyhole opened.
    UINT16 control = 0;
    if (!ReadRegister(m_ControlRegister, &control)) {
        _DebugPrintf("CPowerMicro::Unlock: Can't read PWRMICRO_REG_CONTROL_REGISTER\n");
    } else if (!(control & ControlRegister_Update) &&
               !WriteRegister(m_ControlRegister, control | ControlRegister_Update)) {
        _DebugPrintf("CPowerMicro::Unlock: Can't write PWRMICRO_REG_CONTROL_REGISTER\n");
    }
    if (!WriteRegister(m_KeyholeRegister, KeyholeValue))
        _DebugPrintf("CPowerMicro::Unlock: Can't write keyhole register\n");
}

BOOL CPowerMicro::BootLoaderStarts()
{
    sleep(SettleDelay);
    const std::time_t start = std::time(nullptr);
    while (InTime(start)) {
        usleep(ModePollDelay);
        UINT16 status = 0;
        if (!ReadRegister(PowerRegister_Status, &status)) continue;
        if (status & PowerStatus_BootLoader) {
            _DebugPrintf("CPowerMicro::Unlock: Ready for update\n");
            return TRUE;
        }
        _DebugPrintf("CPowerMicro::Unlock: Not in update state\n");
    }
    return FALSE;
}

BOOL CPowerMicro::Reset()
{
    _DebugPrintf("CPowerMicro::Reset()\n");
    UINT16 status = 0;
    if (!ReadStatus("Reset", &status)) return FALSE;
    if (!(status & PowerStatus_BootLoader)) {
        _DebugPrintf("CPowerMicro::Reset: Not needed\n");
        return TRUE;
    }
    if (!SendResetPacket()) return FALSE;

    sleep(SettleDelay);
    const std::time_t start = std::time(nullptr);
    for (int poll = 0; poll < ResetPolls && InTime(start); poll++) {
        usleep(ModePollDelay);
        if (!ReadStatus("Reset", &status)) return FALSE;
        if (!(status & PowerStatus_BootLoader)) {
            _DebugPrintf("CPowerMicro::Reset: Completed\n");
            return TRUE;
        }
    }
    _DebugPrintf("CPowerMicro::Reset: Failed\n");
    return FALSE;
}

BOOL CPowerMicro::SendResetPacket()
{
    for (int retries = m_MaxRetries;; retries--) {
        _DebugPrintf("CPowerMicro::Reset: Sending reset packet\n");
        if (I2CTransaction(ResetPacket, sizeof ResetPacket, nullptr, 0)) return TRUE;
        _DebugPrintf("CPowerMicro::Reset: I2C problem\n");
        if (retries <= 0) break;
        usleep(RetryDelay);
    }
    _DebugPrintf("CPowerMicro::Reset: Reset packet failed\n");
    return FALSE;
}

UINT16 CPowerMicro::WriteData(const UINT8* pData, int DataLength)
{
    _DebugPrintf("CPowerMicro::WriteData: %04X bytes\n", static_cast<unsigned int>(DataLength));
    for (int transmission = 0; transmission < m_MaxRetries; transmission++) {
        if (!I2CTransaction(pData, DataLength, nullptr, 0)) {
            _DebugPrintf("CPowerMicro::WriteData: I2C problem\n");
            usleep(RetryDelay);
            continue;
        }
        UINT16 status = PowerStatus_Programming;
        for (int poll = 0; poll < ProgrammingPolls && status == PowerStatus_Programming; poll++) {
            usleep(ProgrammingPollDelay);
            if (!ReadStatus("WriteData", &status)) return WriteData_Failed;
            status &= PowerStatus_Programming;
            if (status == PowerStatus_Programming)
                _DebugPrintf("CPowerMicro::WriteData: PWRMICRO_ERR_PROG_IN_PROGRESS\n");
        }
        if (status == 0) return 0;
        if (status == PowerStatus_Programming) {
            _DebugPrintf("CPowerMicro::WriteData: Failed\n");
            return status;
        }
        _DebugPrintf("CPowerMicro::WriteData: Error status = %02X\n", status);
    }
    _DebugPrintf("CPowerMicro::WriteData: Failed\n");
    return WriteData_Failed;
}

BOOL CPowerMicro::SaveState()
{
    m_RegisterList[0] = nullptr;
    m_RegisterList[1] = nullptr;
    if (m_RegisterSet == RegisterSet_Opal) {
        _DebugPrintf("CPowerMicro::SaveState: Opal register set\n");
        m_RegisterList[0] = OpalSavedRegisterList;
    } else if (m_RegisterSet == RegisterSet_Zephyra) {
        _DebugPrintf("CPowerMicro::SaveState: Zephyra register set\n");
        m_RegisterList[0] = ZephyraSavedRegisterList;
    } else {
        _DebugPrintf("CPowerMicro::SaveState: Unknown register set\n");
        return FALSE;
    }

    if (m_ControllerType == ControllerType_Quillon) {
        _DebugPrintf("CPowerMicro::SaveState: Adding Quillon register set\n");
        m_RegisterList[1] = QuillonSavedRegisterList;
    } else if (m_ControllerType == ControllerType_Brisk) {
        _DebugPrintf("CPowerMicro::SaveState: Adding Brisk register set\n");
        m_RegisterList[1] = m_RegisterList[0];
        m_RegisterList[0] = BriskSavedRegisterList;  // kept: brisk-list-first
    }

    static_assert(sizeof BriskSavedRegisterList + sizeof OpalSavedRegisterList <=
                      sizeof m_SavedRegisters / sizeof m_SavedRegisters[0] * sizeof(CRegisterList),
                  "the longest lists must fit");
    UINT16* pValue = m_SavedRegisters;
    return SaveRegisters(m_RegisterList[0], pValue) && SaveRegisters(m_RegisterList[1], pValue);
}

BOOL CPowerMicro::SaveRegisters(CRegisterList* pList, UINT16*& pValue)
{
    for (; pList && pList->Register != -1; pList++) {
        UINT16 value = 0;
        if (!ReadRegister(pList->Register, &value)) {
            _DebugPrintf("CPowerMicro::SaveRegisters: Can't save register %02X\n",
                         static_cast<unsigned int>(pList->Register));
            return FALSE;
        }
        *pValue++ = value & pList->Mask;
    }
    return TRUE;
}

BOOL CPowerMicro::RestoreState()
{
    _DebugPrintf("CPowerMicro::RestoreState()\n");
    UINT16* pValue = m_SavedRegisters;
    return RestoreRegisters(m_RegisterList[0], pValue) && RestoreRegisters(m_RegisterList[1], pValue);
}

BOOL CPowerMicro::RestoreRegisters(CRegisterList* pList, UINT16*& pValue)
{
    for (; pList && pList->Register != -1; pList++) {
        const unsigned int number = static_cast<unsigned int>(pList->Register);
        UINT16 value = *pValue++;
        if (pList->Mask != WholeRegister) {
            UINT16 current = 0;
            if (!ReadRegister(pList->Register, &current)) {
                _DebugPrintf("CPowerMicro::RestoreRegisters: Can't read register %02X\n", number);
                return FALSE;
            }
            value = static_cast<UINT16>((current & ~pList->Mask) | value);
        }
        if (!WriteRegister(pList->Register, value)) {
            _DebugPrintf("CPowerMicro::RestoreRegisters: Can't restore register %02X\n", number);
            return FALSE;
        }
    }
    return TRUE;
}

BOOL CPowerMicro::HaltDevice()
{
    _DebugPrintf("CPowerMicro::HaltDevice()\n");
    if (!m_pChannel->HaltDevice(DeviceID_PowerPIC, 0)) return FALSE;
    sleep(HaltDelay);
    return TRUE;
}

BOOL CPowerMicro::ResumeDevice()
{
    _DebugPrintf("CPowerMicro::ResumeDevice()\n");
    return m_pChannel->ResumeDevice(DeviceID_PowerPIC);
}
