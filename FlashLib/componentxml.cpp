#include "componentxml.h"

#include <initializer_list>
#include <new>

#include "bounded.h"
#include "debug.h"
#include "util.h"
#include "zalxml.h"

CComponentXML::CComponentXML() : m_pReader(nullptr), m_pZalPackage(nullptr) {}

CComponentXML::~CComponentXML()
{
    delete m_pReader;
}

BOOL CComponentXML::Initialize()
{
    m_pReader = new (std::nothrow) CZalXMLReader;
    if (!m_pReader) {
        _DebugPrintf("CComponentXML::Initialize: Can't create CZalXMLReader\n");
        return FALSE;
    }
    CStr path;
    if (!FindFileInComponentDir("qx*.xml", path) && !FindFileInComponentDir("*.xml", path)) {
        _DebugPrintf("CComponentXML::Initialize: Can't find component XML file\n");
        return FALSE;
    }
    _DebugPrintf("CComponentXML::Initialize: Using %s\n", path.GetAnsiString());
    if (m_pReader->ParseFile(path) != XMLNoError) {
        _DebugPrintf("CComponentXML::Initialize: CZalXMLReader::ParseFile failed\n");
        return FALSE;
    }
    if (!m_pReader->IsValid()) {
        _DebugPrintf("CComponentXML::Initialize: CZalXMLReader::IsValid failed\n");
        return FALSE;
    }
    m_pZalPackage = m_pReader->FindFirstChildOf(m_pReader->GetRootNode(), "zal_package", nullptr, nullptr);
    if (!m_pZalPackage) {
        _DebugPrintf("CComponentXML::Initialize: Can't find zal_package\n");
        return FALSE;
    }
    return TRUE;
}

LPCTSTR CComponentXML::GetTranslatedValue(LPCTSTR element, LPCTSTR lang)
{
    if (!m_pZalPackage) return "";
    CZalXMLNode* pNode = m_pZalPackage->GetFirstChild(element);
    if (!pNode) {
        _DebugPrintf("CComponentXML::GetTranslatedValue: Can't find %s\n", element);
        return "";
    }
    char szName[4096];
    BoundedFormat("a translated element's name", szName, sizeof szName, "%s_xlate", element);
    CZalXMLNode* pTranslation = m_pReader->FindFirstChildOf(pNode, szName, "lang", lang);
    // kept: english-anywhere
    if (!pTranslation) pTranslation = m_pReader->FindFirstChildOf(nullptr, szName, "lang", "en");
    if (pTranslation) return pTranslation->GetValue();

    _DebugPrintf("CComponentXML::GetTranslatedValue: Can't find %s\n", szName);
    return nullptr;  // kept: missing-translation (a missing element gives the empty text)
}

LPCTSTR CComponentXML::GetName(LPCTSTR lang)
{
    return GetTranslatedValue("name", lang);
}

LPCTSTR CComponentXML::GetAltName(LPCTSTR lang)
{
    return GetTranslatedValue("alt_name", lang);
}

LPCTSTR CComponentXML::GetVersion()
{
    if (!m_pZalPackage) return "";
    CZalXMLNode* pVersion = m_pZalPackage->GetFirstChild("version");
    if (!pVersion) {
        _DebugPrintf("CComponentXML::GetVersion: Can't find version\n");
        return "";
    }
    return pVersion->GetAttribute("value");
}

LPCTSTR CComponentXML::GetRevision()
{
    if (!m_pZalPackage) return "";
    CZalXMLNode* pVersion = m_pZalPackage->GetFirstChild("version");
    if (!pVersion) {
        _DebugPrintf("CComponentXML::GetRevision: Can't find version\n");
        return "";
    }
    return pVersion->GetAttribute("revision");
}

CStr CComponentXML::GetCombinedVersion()
{
    CStr combined = GetVersion();
    const CStr revision = GetRevision();
    if (!revision.IsEmpty()) combined += CStr("(") + revision + ")";
    return combined;
}

CZalXMLNode* CComponentXML::GetFirstSwKey()
{
    CZalXMLNode* pNode = m_pZalPackage;
    for (LPCTSTR element : {"sw_keys", "sw_keys_and", "sw_key"}) {
        if (!pNode) return nullptr;
        pNode = pNode->GetFirstChild(element);
        // kept: software-key-log-prefix
        if (!pNode) _DebugPrintf("CComponentXML::GetFirmwareKey: Can't find %s\n", element);
    }
    return pNode;
}

LPCTSTR CComponentXML::GetFirmwareKey()
{
    CZalXMLNode* pKey = GetFirstSwKey();
    return pKey ? pKey->GetAttribute("name") : "";
}

LPCTSTR CComponentXML::GetFirmwareType()
{
    CZalXMLNode* pKey = GetFirstSwKey();
    if (!pKey) return "";
    CZalXMLNode* pPath = pKey->GetFirstChild("sw_key_expectedpath");
    if (!pPath) {
        _DebugPrintf("CComponentXML::GetFirmwareType: Can't find sw_key_expectedpath\n");
        return "";
    }
    return pPath->GetValue();
}
