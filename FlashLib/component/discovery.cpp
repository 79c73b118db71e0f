#include <initializer_list>

#include "../bounded.h"
#include "../handles.h"
#include "component.h"
#include "componentxml.h"
#include "debug.h"
#include "util.h"

namespace
{

// clang-format off
const char* const DiscoveryXml[] = {
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\" ?>",
    "<qv_rom_discovery version=\"2.0.1.0\">",
    "  <type value=\"%ComponentType%\"/>",
    "  <alt_name value=\"%Description%\"/>",
    "  <version value=\"%NewVersion%\"/>",
    "  <takes_effect value=\"%TakesEffect%\"/>",
    "  <devices>",
    "    <device>",
    "      <device_id value=\"%DeviceID%\"/>",
    "      <product_id value=\"%ProductID%\"/>",
    "      <busnumber value=\"\"/>",
    "      <devicenumber value=\"\"/>",
    "      <funcnumber value=\"\"/>",
    "      <fw_item>",
    "        <!-- InstallState = %InstallState% -->",
    "        <type value=\"%FirmwareItemType%\"/>",
    "        <firmware_id value=\"%FirmwareItemID%\"/>",
    "        <version value=\"%NewVersion%\"/>",
    "        <active_version value=\"%CurrentVersion%\"/>",
    "        <action value=\"%Action%\"/>",
    "        <duration value=\"%Duration%\"/>",
    "        <message value=\"\"/>",
    "        <shared value=\"no\"/>",
    "      </fw_item>",
    "    </device>",
    "  </devices>",
    "</qv_rom_discovery>",
    nullptr,
};
// clang-format on

struct Placeholder
{
    const char* pszName;
    CStr sValue;
};

const char* ActionName(int installState)
{
    switch (installState) {
        case ZALSTATE_INSTALLEDOLDER:
            return "upgrade";
        case ZALSTATE_INSTALLEDNEWER:
            return "downgrade";
        case ZALSTATE_INSTALLEDSAME:
            return "rewrite";
        default:
            return "skip";
    }
}

// What follows the prefix of "firmware:sd:rom" or "firmware:rom".
CStr ComponentType(const CStr& firmwareType)
{
    for (LPCTSTR prefix : {"firmware:sd:", "firmware:"}) {
        const int length = CStr(prefix).GetLength();
        if (firmwareType.Left(length).CompareNoCase(prefix)) return firmwareType.Mid(length);
    }
    return "QLOGIC";
}

CStr Number(int value)
{
    CStr text;
    text.Format("%d", value);
    return text;
}

template <std::size_t Count>
bool WriteLines(const CFile& file, const Placeholder (&placeholders)[Count])
{
    for (const char* const* ppLine = DiscoveryXml; *ppLine; ppLine++) {
        char szLine[256];
        BoundedCopy("a discovery XML line", szLine, sizeof szLine, *ppLine);
        for (const Placeholder& placeholder : placeholders)
            ReplaceStr(szLine, placeholder.pszName, placeholder.sValue.GetAnsiString());  // kept: xml-unescaped
        if (std::fprintf(file.get(), "%s\n", szLine) < 0) return false;
    }
    return true;
}

}  // namespace

void CComponent::SelfDiscovery()
{
    _DebugPrintf("CComponent::SelfDiscovery()\n");
    if (!m_Discovery.bSupported || !m_Discovery.bEnabled) return;
    m_Discovery.bFailed = !PerformDiscovery();
    if (!m_Discovery.bFailed) m_Discovery.bFailed = !WriteDiscoveryXml();
}

BOOL CComponent::PerformDiscovery()
{
    _DebugPrintf("CComponent::PerformDiscovery()\n");
    return TRUE;
}

// The defaults stay in the members.
void CComponent::FillDiscoveryDefaults()
{
    if (m_Discovery.sComponentType.IsEmpty() && m_pXML)
        m_Discovery.sComponentType = ComponentType(m_pXML->GetFirmwareType());
    if (m_Discovery.sFirmwareItemType.IsEmpty()) m_Discovery.sFirmwareItemType = m_Discovery.sDeviceId;
    if (m_Discovery.sFirmwareItemId.IsEmpty()) m_Discovery.sFirmwareItemId = m_Discovery.sFirmwareItemType;
    if (m_Discovery.sTakesEffect.IsEmpty()) m_Discovery.sTakesEffect = "deferred";
}

BOOL CComponent::WriteDiscoveryXml()
{
    _DebugPrintf("CComponent::WriteDiscoveryXml(\"%s\")\n", m_Discovery.sXmlFileName.GetAnsiString());
    FillDiscoveryDefaults();
    const Placeholder placeholders[] = {
        {"%ComponentType%", m_Discovery.sComponentType},
        {"%Description%", m_Properties.sName},  // kept: xml-description
        {"%NewVersion%", m_Properties.sNewVersion},
        {"%CurrentVersion%", m_Properties.sCurrentVersion},
        {"%TakesEffect%", m_Discovery.sTakesEffect},
        {"%DeviceID%", m_Discovery.sDeviceId},
        {"%ProductID%", m_Discovery.sProductId},
        {"%FirmwareItemType%", m_Discovery.sFirmwareItemType},
        {"%FirmwareItemID%", m_Discovery.sFirmwareItemId},
        {"%InstallState%", Number(m_InstallState)},
        {"%Action%", ActionName(m_InstallState)},
        {"%Duration%", Number(m_Discovery.EstimatedDuration)},
    };

    CFile file(std::fopen(m_Discovery.sXmlFileName.GetAnsiString(), "wt"));
    if (!file) {
        _DebugPrintf("CComponent::WriteDiscoveryXml: Can't create file\n");
        return FALSE;
    }
    const bool written = WriteLines(file, placeholders);
    return std::fclose(file.release()) == 0 && written;
}
