#include "tests/support.h"
#include "zalph.h"

namespace
{

// The sections with their keys' lines, "[A]{x=1}{y=2}[B]".
std::string Read(const std::string& contents)
{
    CTestFolder folder;
    const CINIFile file(folder.Write("settings.ini", contents).c_str());
    EXPECT_TRUE(file.IsValid());
    std::string all;
    for (int i = 0; i < file.GetNumSections(); i++) {
        const CINISection section = file.GetSection(i);
        all += std::string("[") + section.GetName().GetAnsiString() + "]";
        for (int k = 0; k < section.GetNumKeys(); k++)
            all += std::string("{") + section.GetKey(k).GetKeyString().GetAnsiString() + "}";
    }
    return all;
}

// The arguments, each behind a '|', with '>' between option and parameter.
std::string Arguments(const char* text)
{
    CStr copy(text);
    const CCommandLine line(copy);
    std::string all;
    for (int i = 0; i < line.GetNumArgs(); i++) {
        all += std::string("|") + line.GetArgOption(i).GetAnsiString();
        if (line.HasArgParam(i)) all += std::string(">") + line.GetArgParam(i).GetAnsiString();
    }
    return all;
}

BOOL Verify(const char* text, const char* syntax)
{
    CStr copy(text);
    return CCommandLine(copy).VerifySyntax(syntax);
}

}  // namespace

TEST(Arrays, KeepWhatWasAddedInOrder)
{
    CPointerArray pointers;
    int data[3] = {};
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(nullptr, pointers[0]);
        pointers.Add(nullptr);
        for (int& item : data) pointers.Add(&item);
        EXPECT_EQ(3, pointers.GetSize());
        for (int i = 0; i < 3; i++) EXPECT_EQ(&data[i], pointers.GetAt(i));
        for (int i : {-1, 3, 100}) EXPECT_EQ(nullptr, pointers[i]) << i;
        pointers.RemoveAll();
    }
}

TEST(Arrays, DoNotReleaseWhatTheyStored)
{
    CIntegerArray integers;
    integers.Add(0);
    EXPECT_EQ(0, integers[0]);
    CStrArray strings;
    strings.Add("abc");
    EXPECT_STREQ("abc", strings.GetAt(0));
    const int* pStored = static_cast<int*>(static_cast<CBaseArray&>(integers)[0]);
    const CStr* pString = static_cast<CStr*>(static_cast<CBaseArray&>(strings)[0]);
    integers.RemoveAll();
    strings.RemoveAll();
    EXPECT_EQ(0, *pStored);
    EXPECT_STREQ("abc", *pString);
}

TEST(Ini, ReadsSectionsAndDropsTheOnesThatEndInNoKey)
{
    const std::string half(1000, 'x');
    const std::string cases[][2] = {
        {"[A]\nx = 1\n\n[B]\ny=2", "[A]{x = 1}[B]{y=2}"},
        {"[A]\nx = 1\n\n[B]\ny=2\n\n", "[A]{x = 1}"},
        {"[A]\nx = 1\n[B]\ny=2\n;end", "[A]{x = 1}"},
        {"[A]\n[B]\n[C]\n", "[A][B]"},
        {"; one\n\n;two\n", ""},
        {"x=1\n[A]\n;c\n  y  =  2  \n", "[A]{y  =  2  }"},
        {"  [A]\r\r\n\tx=1\r\n\r\n[A]\nx=2\nx=3", "[A]{\tx=1}[A]{x=2}{x=3}"},
        {"[A]\n[ B ]  \n[ B ]\nx\n[]\n[\n]", "[A]{[ B ]  }[ B ]{x}[]{[}{]}"},
        {std::string("[A]\nab\0cd\n\0\ny", 14), "[A]{ab}{y}"},
        {"[A]\n" + half + half, "[A]{" + half + std::string(23, 'x') + "}{" + std::string(977, 'x') + "}"},
        {"[A]\n" + half + std::string(23, 'x') + "\n", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(c[1], Read(c[0])) << c[0];
}

TEST(Ini, LooksUpRegardlessOfCaseAndAnswersWhatIsAbsent)
{
    CTestFolder folder;
    const CINIFile file(folder.Write("settings.ini", "[A]\nx = 1\nX=2\nflag\n[B]\nx=3\ny=\n[a]\nz==4\n").c_str());
    EXPECT_STREQ("1", file.GetKeyValue("a", "X"));
    EXPECT_STREQ("", file.GetKeyValue("a", "z"));
    EXPECT_STREQ("", file.GetKeyValue("C", "x"));
    EXPECT_STREQ("B", file.GetSection("b").GetName());
    EXPECT_STREQ("", file.GetSection(3).GetName());
    EXPECT_STREQ("", file.GetSection(0).GetKey(3).GetKeyString());
    EXPECT_TRUE(file.SectionExists("b") && file.GetSection("B").KeyExists("Y"));
    EXPECT_FALSE(file.SectionExists("") || file.GetSection("A").KeyExists("y"));
    EXPECT_STREQ("B", file.FindSectionWithKeyName("Y"));
    EXPECT_STREQ("A", file.FindSectionWithKeyName("X"));
    EXPECT_STREQ("", file.FindSectionWithKeyName("flag"));
    EXPECT_FALSE(CINIFile((folder.Path() / "missing").c_str()).IsValid());
}

TEST(Ini, SplitsKeys)
{
    const CINIKey key("  name =  a , b ,, c=d \t ");
    EXPECT_STREQ("name", key.GetName());
    EXPECT_STREQ("a , b ,, c=d \t", key.GetValue());
    const char* const terms[] = {"a", "b", "", "c=d \t", "", ""};
    for (int i = 0; i < 6; i++) EXPECT_STREQ(terms[i], key.GetTerm(i, ",")) << i;
    EXPECT_STREQ("", key.GetTerm(-1, ""));
    EXPECT_STREQ("a , b ,, c=d \t", key.GetTerm(0, ";"));
    EXPECT_STREQ(", c=d \t", key.GetTerm(1, ",,"));
    EXPECT_STREQ("", CINIKey("flag").GetName());
    EXPECT_STREQ("flag", CINIKey("flag").GetValue());
}

TEST(Tokenizer, SplitsAtSpacesOnly)
{
    EXPECT_EQ("|/f|/o>file", Arguments("  /f  /o:file  "));
    EXPECT_EQ("|/o>a:b|/p>|>x", Arguments("/o:a:b /p: :x"));
    EXPECT_EQ("|\"a|b\"\t/f", Arguments("\"a b\"\t/f"));
    EXPECT_EQ("", Arguments("   "));

    CStr text("/f /o:x /o:y /F");
    const CCommandLine line(text);
    EXPECT_EQ(1, line.FindArgOption("/o"));
    EXPECT_EQ(-1, line.FindArgOption("/O"));
    EXPECT_EQ(2, line.FindArg("/o:y"));
    EXPECT_EQ(-1, line.FindArg("/o"));
}

TEST(Tokenizer, VerifiesLooselyAgainstASyntaxText)
{
    EXPECT_TRUE(Verify("/f /o:x /o", "/f /o:"));
    EXPECT_TRUE(Verify("/fo ce", "/force"));
    EXPECT_TRUE(Verify("", "/f"));
    EXPECT_FALSE(Verify("/F", "/f"));
    EXPECT_FALSE(Verify("/f:x", "/f /o:"));
    EXPECT_FALSE(Verify("/o:", "/f /o:"));
    EXPECT_FALSE(Verify("/f /g", "/f"));
}
