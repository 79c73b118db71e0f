#include "tests/support.h"
#include "zalph.h"

namespace
{

// Writes a settings file's sections and keys, one more of each than there are.
void Tell(CTranscript& trace, const std::string& contents)
{
    CTestFolder folder;
    const CINIFile file(folder.Write("settings.ini", contents).c_str());
    trace(testing::PrintToString(contents), ": ", file.GetNumSections(), " sections, valid ", file.IsValid());
    for (int i = 0; i <= file.GetNumSections(); i++) {
        const CINISection section = file.GetSection(i);
        trace("  section ", section.GetName(), ", ", section.GetNumKeys(), " keys");
        for (int k = 0; k <= section.GetNumKeys(); k++) trace("    \"", section.GetKey(k).GetKeyString(), "\"");
    }
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
        EXPECT_EQ(0, pointers.GetSize());
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
    CTranscript trace("ini-sections");
    const std::string half(1000, 'x');
    for (const std::string& contents :
         {std::string("[A]\nx = 1\n\n[B]\ny=2"), std::string("[A]\nx = 1\n\n[B]\ny=2\n\n"),
          std::string("[A]\nx = 1\n[B]\ny=2\n;end"), std::string("[A]\n[B]\n[C]\n"), std::string("; one\n\n;two\n"),
          std::string("x=1\n[A]\n;c\n  y  =  2  \n"), std::string("  [A]\r\r\n\tx=1\r\n\r\n[A]\nx=2\nx=3"),
          std::string("[A]\n[ B ]  \n[ B ]\nx\n[]\n[\n]"), std::string("[A]\nab\0cd\n\0\ny", 14), std::string(),
          std::string("[A]\nx=1  "), std::string("[A]\nx=1\n[B]\ny=2\n ;c"), "[A]\n" + half + half,
          "[A]\n" + half + std::string(23, 'x') + "\n"})
        Tell(trace, contents);
    EXPECT_FALSE(CINIFile("/no/such/file").IsValid() || CINIFile("").IsValid());
}

TEST(Ini, LooksUpRegardlessOfCaseAndAnswersWhatIsAbsent)
{
    CTranscript trace("ini-lookups");
    CTestFolder folder;
    const CINIFile file(folder.Write("settings.ini", "[A]\nx = 1\nX=2\nflag\n[B]\nx=3\ny=\n[a]\nz==4\n").c_str());
    for (const char* pszKey : {"x", "X", "y", "Z", "flag", ""}) {
        trace("key \"", pszKey, "\" is in section \"", file.FindSectionWithKeyName(pszKey), "\"");
        for (const char* pszSection : {"a", "B", "C", ""}) {
            const CINISection section = file.GetSection(pszSection);
            trace("  of \"", pszSection, "\", there ", file.SectionExists(pszSection), ", named \"", section.GetName(),
                  "\": there ", section.KeyExists(pszKey), ", line \"", file.GetKey(pszSection, pszKey).GetKeyString(),
                  "\", of the section \"", section.GetKey(pszKey).GetKeyString(), "\", value \"",
                  file.GetKeyValue(pszSection, pszKey), "\"");
        }
    }
}

TEST(Ini, SplitsKeys)
{
    CTranscript trace("ini-keys");
    for (const char* pszLine : {"  name =  a , b ,, c=d \t ", "flag", "flag  ", "=x", " x = ", "", "a=,b"}) {
        const CINIKey key(pszLine);
        trace("\"", pszLine, "\": name \"", key.GetName(), "\", value \"", key.GetValue(), "\"");
        for (const char* pszSeparator : {",", ",,", ";", ""})
            for (int i = -1; i <= 5; i++)
                trace("  term ", i, " by \"", pszSeparator, "\": ", key.GetTerm(i, pszSeparator));
    }
}

TEST(Tokenizer, SplitsAtSpacesOnly)
{
    CTranscript trace("tokenizer");
    for (const char* pszLine : {"  /f  /o:file  ", "/o:a:b /p: :x", "\"a b\"\t/f", "   ", "/f /o:x /o:y /F", "/fo ce",
                                "/f /o", "/o:", "/o:file", ":x"}) {
        CStr text(pszLine);
        const CCommandLine line(text);
        trace("\"", pszLine, "\": ", line.GetNumArgs(), " arguments");
        for (int i = 0; i < line.GetNumArgs(); i++)
            trace("  \"", line.GetArg(i), "\", option \"", line.GetArgOption(i), "\", parameter ", line.HasArgParam(i),
                  " \"", line.GetArgParam(i), "\"");
        for (const char* pszWanted : {"/o", "/o:y", "/F", "/f", "/x", ""})
            trace("  FindArg(", pszWanted, ") ", line.FindArg(pszWanted), ", FindArgOption ",
                  line.FindArgOption(pszWanted));
        for (const char* pszSyntax : {"/f /o:", "/force", "/f", "/o: :", "/o:/F/f", "/o", ""})
            trace("  VerifySyntax(", pszSyntax, ") ", line.VerifySyntax(pszSyntax));
    }
}
