#include <unistd.h>

#include "tests/support.h"
#include "zalxml.h"

namespace
{

class Xml : public testing::Test
{
  protected:
    ULONG Parse(const std::string& text) { return m_Reader.ParseFile(m_Folder.Write("doc.xml", text).c_str()); }
    CZalXMLNode* Find(const char* element) { return m_Reader.FindFirstChildOf(nullptr, element, nullptr, nullptr); }

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
