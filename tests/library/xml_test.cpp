#include <unistd.h>

#include "componentxml.h"
#include "tests/support.h"
#include "util.h"
#include "zalxml.h"

namespace
{

class Xml : public testing::Test
{
  protected:
    ULONG Parse(const std::string& text) { return m_Reader.ParseFile(m_Folder.Write("doc.xml", text).c_str()); }
    CZalXMLNode* Find(const char* element) { return m_Reader.FindFirstChildOf(nullptr, element, nullptr, nullptr); }

    // The package description's answers, with text as what stands inside zal_package.
    bool Load(CComponentXML& xml, const std::string& text)
    {
        m_Folder.Write("qx1.xml", "<zal_package>" + text + "</zal_package>");
        g_InstallLocalDir = m_Folder.Path().c_str();
        return xml.Initialize();
    }

    CTestFolder m_Folder;
    CZalXMLReader m_Reader;
};

}  // namespace

TEST_F(Xml, AnswersInDocumentOrder)
{
    ASSERT_EQ(XMLNoError, Parse("<?xml version='1.0' encoding='ISO-8859-1'?><!DOCTYPE a [<!ENTITY e 'x&amp;y'>]>"
                                "<a><b><c k='1'/></b>t<!-- no -->e<c k='2&lt;&quot;'>in</c>xt&e;\xE9<d/><d>"
                                "<c k='1'>third</c></d></a>"));
    EXPECT_TRUE(m_Reader.IsValid());
    CZalXMLNode* pRoot = m_Reader.GetRootNode();
    CZalXMLNode* pA = pRoot->GetFirstChild("a");
    ASSERT_TRUE(pA);
    EXPECT_STREQ("textx&y\xC3\xA9", pA->GetValue());
    EXPECT_STREQ("in", pA->GetFirstChild("c")->GetValue());
    EXPECT_STREQ("2<\"", pA->GetFirstChild("c")->GetAttribute("k"));
    EXPECT_FALSE(pA->GetAttribute("k"));
    EXPECT_FALSE(pA->GetFirstChild("a"));
    EXPECT_EQ(pA, m_Reader.FindFirstChildOf(pRoot, "a", nullptr, nullptr));
    EXPECT_FALSE(m_Reader.FindFirstChildOf(pA, "a", nullptr, nullptr));
    EXPECT_STREQ("1", Find("c")->GetAttribute("k"));
    EXPECT_STREQ("in", m_Reader.FindFirstChildOf(pA, "c", "k", "2<\"")->GetValue());
    // Below the second d, past the end of the first.
    EXPECT_FALSE(m_Reader.FindFirstChildOf(pA->GetFirstChild("d"), "c", nullptr, nullptr));
    EXPECT_FALSE(m_Reader.FindFirstChildOf(pA, "c", "k", "3"));
}

TEST_F(Xml, TellsEveryFailureApartAndStaysUsable)
{
    EXPECT_FALSE(m_Reader.IsValid() || m_Reader.GetRootNode() || Find("a"));
    EXPECT_EQ(XMLErrExisting, m_Reader.ParseFile("/no/such/file"));
    EXPECT_EQ(XMLErrExisting, m_Reader.ParseFile(nullptr));
    EXPECT_EQ(XMLErrFileRead, m_Reader.ParseFile(m_Folder.Path().c_str()));
    EXPECT_EQ(XMLErrUnknown, Parse(""));
    for (const char* text : {"<a>", "<a></b>", "<a/><a/>", "text", "<a>&none;</a>", "<a k='1' k='2'/>", "<a>\xFF</a>"})
        EXPECT_EQ(XMLErrXmlParse, Parse(text)) << text;

    std::string laughs = "<!DOCTYPE a [<!ENTITY l0 'ha'>";
    for (int i = 1; i < 20; i++) {
        const std::string inner = Repeat(10, "&l" + std::to_string(i - 1) + ";");
        laughs += "<!ENTITY l" + std::to_string(i) + " '" + inner + "'>";
    }
    EXPECT_EQ(XMLErrAlloc, Parse(laughs + "]><a>&l19;</a>"));

    EXPECT_EQ(XMLNoError, Parse("<a/>"));
    EXPECT_TRUE(Find("a"));
    EXPECT_EQ(XMLErrXmlParse, Parse("<a"));
    EXPECT_FALSE(m_Reader.IsValid() || m_Reader.GetRootNode() || Find("a"));
}

TEST_F(Xml, BoundsTheNesting)
{
    const auto nested = [](int depth) { return Repeat(depth, "<a>") + Repeat(depth, "</a>"); };
    EXPECT_EQ(XMLNoError, Parse(nested(5000)));
    EXPECT_TRUE(Find("a"));
    EXPECT_EQ(XMLErrUnknown, Parse(nested(10000)));
    EXPECT_FALSE(m_Reader.IsValid());
}

TEST_F(Xml, CantOpenWhatIsNotForReading)
{
    const std::string file = m_Folder.Write("secret.xml", "<a/>");
    std::filesystem::permissions(m_Folder.Path(), std::filesystem::perms::all);
    std::filesystem::permissions(file, std::filesystem::perms::none);
    const bool isRoot = geteuid() == 0;
    ASSERT_TRUE(!isRoot || seteuid(65534) == 0);
    const ULONG error = m_Reader.ParseFile(file.c_str());
    ASSERT_TRUE(!isRoot || seteuid(0) == 0);
    EXPECT_EQ(XMLErrFileOpen, error);
}

TEST_F(Xml, PackageDescriptionAnswers)
{
    CComponentXML xml;
    EXPECT_STREQ("", xml.GetName("en"));
    ASSERT_TRUE(
        Load(xml,
             "<version value='1.2' revision='B'/><version value='9'/><name><name_xlate lang='fr'>Nom</name_xlate>"
             "<name_xlate lang='en'>Name</name_xlate></name><alt_name><alt_name_xlate lang='fr'>Autre"
             "</alt_name_xlate></alt_name><sw_keys><sw_keys_and><sw_key name='K'><sw_key_expectedpath>firmware:x"
             "</sw_key_expectedpath></sw_key></sw_keys_and></sw_keys>"));
    EXPECT_STREQ("Name", xml.GetName("en"));
    EXPECT_STREQ("Nom", xml.GetName("fr"));
    EXPECT_STREQ("Name", xml.GetName("de"));
    CLogCapture log;
    EXPECT_FALSE(xml.GetAltName("de"));
    EXPECT_EQ("CComponentXML::GetTranslatedValue: Can't find alt_name_xlate\n", log.Text());
    EXPECT_STREQ("1.2(B)", xml.GetCombinedVersion());
    EXPECT_STREQ("K", xml.GetFirmwareKey());
    EXPECT_STREQ("firmware:x", xml.GetFirmwareType());
}

TEST_F(Xml, PackageDescriptionDegradesToEmptyTexts)
{
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"", "", "CComponentXML::GetFirmwareKey: Can't find sw_keys\n"},
        {"<version/><sw_keys/>", "", "CComponentXML::GetFirmwareKey: Can't find sw_keys_and\n"},
        {"<version revision='B'/><sw_keys><sw_keys_and/></sw_keys>", "(B)",
         "CComponentXML::GetFirmwareKey: Can't find sw_key\n"},
        {"<version value='1.2'/><sw_keys><sw_keys_and><sw_key name=''/></sw_keys_and></sw_keys>", "1.2",
         "CComponentXML::GetFirmwareType: Can't find sw_key_expectedpath\n"},
    };
    for (const auto& [inside, combined, logged] : cases) {
        CComponentXML xml;
        ASSERT_TRUE(Load(xml, inside));
        EXPECT_STREQ(combined, xml.GetCombinedVersion());
        EXPECT_STREQ("", xml.GetFirmwareKey());
        CLogCapture log;
        EXPECT_STREQ("", xml.GetFirmwareType());
        EXPECT_EQ(logged, log.Text());
        EXPECT_STREQ("", xml.GetName("en"));
    }
}

TEST_F(Xml, PackageDescriptionIsFoundByName)
{
    g_InstallLocalDir = m_Folder.Path().c_str();
    const auto initialize = [] { return CComponentXML().Initialize(); };
    CLogCapture log;
    EXPECT_FALSE(initialize());
    m_Folder.Write("other.xml", "<a><zal_package/></a>");
    EXPECT_TRUE(initialize());
    m_Folder.Write("qxb.xml", "<a/>");
    EXPECT_FALSE(initialize());
    m_Folder.Write("qxb.xml", "<a>");
    EXPECT_FALSE(initialize());
    for (const char* line : {"Can't find component XML file\n", "other.xml\n", "Can't find zal_package\n",
                             "CZalXMLReader::ParseFile failed\n"})
        EXPECT_TRUE(log.Has(line)) << line;
}
