// A package description.
#include <cstring>

#include "componentxml.h"
#include "fuzz/fuzz.h"
#include "zalxml.h"

// Entities may make eight MiB of a document, and those 900000 elements.
const CStepBound StepBound = {100000000, 10000};

namespace
{

class CDescription : public CComponentXML
{
  public:
    CZalXMLReader& Reader() { return *m_pReader; }
};

std::size_t Length(const char* pszText)
{
    return pszText ? std::strlen(pszText) : 0;
}

// Walks down from a node by names that a description has.
void Walk(CZalXMLNode* pNode, int depth)
{
    Length(pNode->GetValue());
    for (const char* pszAttribute : {"value", "name", "lang"}) Length(pNode->GetAttribute(pszAttribute));
    for (const char* pszName : {"a", "zal_package", "name", "sw_keys"})
        if (CZalXMLNode* pChild = depth > 0 ? pNode->GetFirstChild(pszName) : nullptr) Walk(pChild, depth - 1);
}

}  // namespace

void Fuzz(CInput& input)
{
    WriteFile("qx.xml", input.Data(), input.Size());
    CDescription description;
    const bool isDescription = description.Initialize();
    CZalXMLReader& reader = description.Reader();
    REQUIRE(reader.IsValid() || !isDescription);
    REQUIRE(reader.IsValid() == (reader.GetRootNode() != nullptr));
    if (reader.IsValid()) Walk(reader.GetRootNode(), 10);
    CZalXMLNode* pEnglish = reader.FindFirstChildOf(nullptr, "name_xlate", "lang", "en");
    REQUIRE(!pEnglish || std::strcmp(pEnglish->GetAttribute("lang"), "en") == 0);

    for (const char* pszLanguage : {"en", "fr"}) {
        Length(description.GetName(pszLanguage));
        Length(description.GetAltName(pszLanguage));
    }
    Length(description.GetVersion());
    Length(description.GetRevision());
    description.GetCombinedVersion();
    Length(description.GetFirmwareKey());
    Length(description.GetFirmwareType());
}
