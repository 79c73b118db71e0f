#include <unistd.h>

#include "chif.h"
#include "debug.h"
#include "pwrmicro.h"

namespace
{

const int DefaultMaxRetries = 15;  // where the register set asks for no other number

// The byte that brings the sum of the bytes to 0.
UINT8 Checksum(const UINT8* pBytes, int length)
{
    int sum = 0;
    for (int i = 0; i < length; i++) sum += pBytes[i];
    return static_cast<UINT8>(-sum);
}

PowerControllerType TypeOfFamily(int family)
{
    switch (family) {
        case 1:
        case 2:
        case 3:
            return ControllerType_Opal;
        case 4:
            return ControllerType_Zephyra;
        case 7:
            return ControllerType_Quillon;
        case 12:
            return ControllerType_Brisk;
        default:
            return ControllerType_Unknown;
    }
}

// The register set that a controller of that type presents on every system.
PowerControllerRegisterSet RegisterSetOfType(PowerControllerType type)
{
    if (type == ControllerType_Opal) return RegisterSet_Opal;
    return type == ControllerType_Zephyra ? RegisterSet_Zephyra : RegisterSet_Unknown;
}

// The register set that Quillon and Brisk controllers present on a system of that type.
PowerControllerRegisterSet RegisterSetOfSystem(int systemType)
{
    switch (systemType) {
        case 1:
        case 5:
            return RegisterSet_Opal;
        case 2:
        case 3:
        case 4:
            return RegisterSet_Zephyra;
        default:
            return RegisterSet_Unknown;
    }
}

// The register set that Quillon and Brisk controllers tell in their flags register.
PowerControllerRegisterSet RegisterSetOfMode(int mode)
{
    if (mode == 1) return RegisterSet_Opal;
    return mode == 2 ? RegisterSet_Zephyra : RegisterSet_Unknown;
}

const char* NameOf(PowerControllerType type)
{
    static const char* const szNames[] = {"Unknown", "Opal", "Zephyra", "Quillon", "Brisk"};
    return szNames[type];
}

}  // namespace

CPowerMicro::CPowerMicro(CChannelInterface* pChannel)
    : m_pChannel(pChannel),
      m_ControllerType(ControllerType_Unknown),
      m_RegisterSet(RegisterSet_Unknown),
      m_Bus(-1),
      m_Address(-1),
      m_KeyholeRegister(0),
      m_ControlRegister(0),
      m_MaxRetries(DefaultMaxRetries),
      m_RegisterList(),
      m_SavedRegisters()
{
    _DebugPrintf("CPowerMicro::CPowerMicro()\n");
}

CPowerMicro::~CPowerMicro()
{
    _DebugPrintf("CPowerMicro::~CPowerMicro()\n");
}

BOOL CPowerMicro::I2CTransaction(const UINT8* pRequestData, int RequestDataLength, UINT8* pResponseData,
                                 int ResponseDataLength)
{
    return m_pChannel->I2CTransaction(m_Bus, m_Address, pRequestData, RequestDataLength, pResponseData,
                                      ResponseDataLength);
}

BOOL CPowerMicro::ReadRegister(int Register, UINT16* pValue)
{
    const unsigned int number = static_cast<unsigned int>(Register);
    UINT8 request[2] = {static_cast<UINT8>(Register)};
    request[1] = Checksum(request, 1);

    for (int attempt = 0; attempt < m_MaxRetries; attempt++) {
        if (attempt > 0) usleep(RetryDelay);
        UINT8 reply[3] = {};
        if (!I2CTransaction(request, sizeof request, reply, sizeof reply)) {
            _DebugPrintf("CPowerMicro::ReadRegister: %02X - I2C problem\n", number);
        } else if (Checksum(reply, 2) != reply[2]) {
            _DebugPrintf("CPowerMicro::ReadRegister: %02X - Bad checksum (%02X %02X %02X)\n", number, reply[0],
                         reply[1], reply[2]);
        } else {
            *pValue = static_cast<UINT16>(reply[0] | reply[1] << 8);
            _DebugPrintf("CPowerMicro::ReadRegister: %02X = %04X\n", number, *pValue);
            return TRUE;
        }
    }
    _DebugPrintf("CPowerMicro::ReadRegister: %02X - Failed\n", number);
    return FALSE;
}

BOOL CPowerMicro::WriteRegister(int Register, UINT16 Value)
{
    const unsigned int number = static_cast<unsigned int>(Register);
    UINT8 request[4] = {static_cast<UINT8>(Register), static_cast<UINT8>(Value), static_cast<UINT8>(Value >> 8)};
    const UINT8 checksum = Checksum(request, 3);
    request[3] = checksum;

    for (int attempt = 0; attempt < m_MaxRetries; attempt++) {
        if (attempt > 0) usleep(RetryDelay);
        UINT8 echo = 0;
        if (!I2CTransaction(request, sizeof request, &echo, sizeof echo)) {
            _DebugPrintf("CPowerMicro::WriteRegister: %02X = %04X - I2C problem\n", number, Value);
        } else if (echo != checksum) {
            _DebugPrintf("CPowerMicro::WriteRegister: %02X = %04X - Bad checksum (%02X != %02X)\n", number, Value, echo,
                         checksum);
        } else {
            _DebugPrintf("CPowerMicro::WriteRegister: %02X = %04X\n", number, Value);
            return TRUE;
        }
    }
    _DebugPrintf("CPowerMicro::WriteRegister: %02X = %04X - Failed\n", number, Value);
    return FALSE;
}

BOOL CPowerMicro::ReadStatus(const char* pszMethod, UINT16* pStatus)
{
    if (ReadRegister(PowerRegister_Status, pStatus)) return TRUE;
    _DebugPrintf("CPowerMicro::%s: Can't read status register\n", pszMethod);
    return FALSE;
}

BOOL CPowerMicro::TakeRegisterSet(const char* pszMethod, PowerControllerRegisterSet Set)
{
    if (Set == RegisterSet_Unknown) return FALSE;
    m_RegisterSet = Set;
    if (Set == RegisterSetOfType(m_ControllerType))
        _DebugPrintf("CPowerMicro::%s: %s\n", pszMethod, NameOf(m_ControllerType));
    else
        _DebugPrintf("CPowerMicro::%s: %s acting as %s\n", pszMethod, NameOf(m_ControllerType),
                     Set == RegisterSet_Opal ? "Opal" : "Zephyra");
    return TRUE;
}

BOOL CPowerMicro::DetermineControllerType()
{
    m_MaxRetries = DefaultMaxRetries;
    UINT16 data = 0;
    if (!ReadRegister(PowerRegister_MiscData, &data)) {
        _DebugPrintf("CPowerMicro::DetermineControllerType: Can't read misc data register\n");
        return FALSE;
    }
    const int family = data >> 8;
    const int systemType = data & 0xFF;
    if (family == 5 || family == 6) {
        _DebugPrintf("CPowerMicro::DetermineControllerType: Tamberline (NOT SUPPORTED)\n");
        return FALSE;
    }
    const PowerControllerType type = TypeOfFamily(family);
    if (type == ControllerType_Unknown) {
        _DebugPrintf("CPowerMicro::DetermineControllerType: Unknown PIC family (%02X)\n", family);
        return FALSE;
    }

    m_ControllerType = type;
    PowerControllerRegisterSet set = RegisterSetOfType(type);
    if (set == RegisterSet_Unknown) set = RegisterSetOfSystem(systemType);
    if (!TakeRegisterSet("DetermineControllerType", set)) {
        _DebugPrintf("CPowerMicro::DetermineControllerType: Unknown %s type (%02X)\n", NameOf(type), systemType);
        return FALSE;
    }
    return SetupBasedOnRegisterSet();
}

PowerControllerType CPowerMicro::ReadDeviceControllerType()
{
    m_MaxRetries = DefaultMaxRetries;
    UINT16 data = 0;
    if (!ReadRegister(PowerRegister_MiscData, &data)) {
        _DebugPrintf("CPowerMicro::ReadControllerType: Can't read misc data register\n");
        return ControllerType_Unknown;
    }
    const int family = data >> 8;
    const PowerControllerType type = TypeOfFamily(family);
    if (type == ControllerType_Unknown)
        _DebugPrintf("CPowerMicro::ReadControllerType: Unknown PIC family (%02X)\n", family);
    else
        _DebugPrintf("CPowerMicro::ReadControllerType: %s\n", NameOf(type));
    return type;
}

BOOL CPowerMicro::SetControllerType(PowerControllerType Type)
{
    switch (Type) {
        case ControllerType_Opal:
        case ControllerType_Zephyra:
            m_ControllerType = Type;
            TakeRegisterSet("SetControllerType", RegisterSetOfType(Type));
            break;
        case ControllerType_Quillon:
        case ControllerType_Brisk:
            m_ControllerType = Type;
            if (!ReadRegisterSet()) return FALSE;
            break;
        default:
            _DebugPrintf("CPowerMicro::SetControllerType: Invalid ControllerType (%d)\n", Type);
            return FALSE;
    }
    return SetupBasedOnRegisterSet();
}

BOOL CPowerMicro::ReadRegisterSet()
{
    m_MaxRetries = DefaultMaxRetries;
    if (m_ControllerType == ControllerType_Brisk) {
        UINT16 status = 0;
        if (!ReadStatus("GetVersion", &status)) return FALSE;  // kept: brisk-log-name
        if (status & PowerStatus_BootLoader) {
            m_RegisterSet = RegisterSet_Unavailable;
            return TRUE;
        }
    }

    UINT16 flags = 0;
    if (!ReadRegister(PowerRegister_Flags, &flags)) {
        _DebugPrintf("CPowerMicro::SetControllerType: Can't read flags register\n");
        return FALSE;
    }
    const int mode = flags >> 6 & 3;
    if (TakeRegisterSet("SetControllerType", RegisterSetOfMode(mode))) return TRUE;
    _DebugPrintf("CPowerMicro::SetControllerType: Unknown %s mode (%d)\n", NameOf(m_ControllerType), mode);
    return FALSE;
}

BOOL CPowerMicro::SetupBasedOnRegisterSet()
{
    int bus = 0;
    switch (m_RegisterSet) {
        case RegisterSet_Opal:
            bus = 2;
            m_ControlRegister = 0x16;
            m_KeyholeRegister = 0x5C;
            m_MaxRetries = DefaultMaxRetries;
            break;
        case RegisterSet_Zephyra:
            bus = 3;
            m_ControlRegister = 0x18;
            m_KeyholeRegister = 0x36;
            m_MaxRetries = 100;
            break;
        case RegisterSet_Unavailable:
            return TRUE;
        default:
            _DebugPrintf("CPowerMicro::SetupBasedOnRegisterSet: Invalid RegisterSet (%d)\n", m_RegisterSet);
            return FALSE;
    }
    if (m_Bus == -1) m_Bus = bus;
    if (m_Address == -1) m_Address = 0x30;
    return TRUE;
}

BOOL CPowerMicro::GetVersion(BOOL* pbBootLoaderRunning, int* pMajorVersion, int* pMinorVersion)
{
    UINT16 status = 0;
    if (!ReadStatus("GetVersion", &status)) return FALSE;

    if (pbBootLoaderRunning) {
        *pbBootLoaderRunning = (status & PowerStatus_BootLoader) != 0;
        _DebugPrintf("CPowerMicro::GetVersion: BootLoaderRunning = %s\n", *pbBootLoaderRunning ? "TRUE" : "FALSE");
    }
    if (pMajorVersion && pMinorVersion) {
        *pMajorVersion = status >> 12;
        *pMinorVersion = status >> 8 & 0xF;
        _DebugPrintf("CPowerMicro::GetVersion: Version = %d.%d\n", *pMajorVersion, *pMinorVersion);
    }
    return TRUE;
}
