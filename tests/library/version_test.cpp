#include "fwversion.h"
#include "tests/support.h"

namespace
{

const struct
{
    const char* Name;
    int CFwVersion::*Member;
} Fields[] = {
    {"VersionByte", &CFwVersion::VersionByte},
    {"VersionWord", &CFwVersion::VersionWord},
    {"Major", &CFwVersion::Major},
    {"Minor", &CFwVersion::Minor},
    {"Revision", &CFwVersion::Revision},
    {"Year", &CFwVersion::Year},
    {"Month", &CFwVersion::Month},
    {"Day", &CFwVersion::Day},
    {"UseRevision", &CFwVersion::UseRevision},
    {"CompareDateFirst", &CFwVersion::CompareDateFirst},
};

CFwVersion Record(const std::string& fields)
{
    CFwVersion version;
    std::istringstream text(fields);
    for (std::string name; std::getline(text >> std::ws, name, '=');)
        for (const auto& field : Fields)
            if (name == field.Name) text >> version.*field.Member;
    return version;
}

// What is not 0, and the text.
std::string Describe(const CFwVersion& version)
{
    std::string text;
    for (const auto& field : Fields)
        if (version.*field.Member != 0)
            text += std::string(" ") + field.Name + "=" + std::to_string(version.*field.Member);
    return text + " \"" + version.ToString().GetAnsiString() + "\"";
}

// Calls a setter on a record whose every field is set.
std::string Set(BOOL (CFwVersion::*setter)(const char*), const std::string& text,
                const char* pszFormat = CFwVersion::DefaultMajorMinorFormat)
{
    CFwVersion version;
    for (const auto& field : Fields) version.*field.Member = 77;
    version.MajorMinorFormat = pszFormat;
    const BOOL accepted = (version.*setter)(text.c_str());
    return "\"" + text + (accepted ? "\":" : "\" refused:") + Describe(version);
}

}  // namespace

TEST(FwVersion, ReadsAndPrintsEveryForm)
{
    CTranscript trace("version-forms");
    for (const char* pszText : {"1.23",
                                "1.5",
                                "1.234",
                                "-1.-2",
                                "1.23 (Sep 12 2024)",
                                "12.05 (09/12/2024)",
                                "1A",
                                "0X1a",
                                "12",
                                "00",
                                "0215",
                                "0x0215",
                                "0xFFFF",
                                "0x12345",
                                "0x",
                                "0x1",
                                "123",
                                "1g",
                                "x1",
                                "",
                                "dec  1 2024",
                                "Sep 12 x024",
                                "1.23 (09.12.2024)"})
        trace(Set(&CFwVersion::Parse, pszText));
    // Every form, and each of its characters replaced.
    for (const std::string form : {"P7a v2.14 (09/12/2024)", "v9.99 (12-09-1999)", "2.14 (2031.12.09)",
                                   "2.14_2031/12/09", "2031-12-09", "12/09/2031", "oCt 12 2031", "0x1B", "1B2C"}) {
        trace(Set(&CFwVersion::Parse, form), " ", Set(&CFwVersion::Parse, form + " "));
        for (std::size_t i = 0; i < form.size(); i++) {
            std::string changed = form;
            changed[i] = form[i] == '-' ? '/' : '-';
            trace(Set(&CFwVersion::Parse, changed));
        }
    }
    for (const char* pszMonth : {"Jan", "fEB", "maR", "Apr", "May", "JUN", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"})
        trace("SetDate ", Set(&CFwVersion::SetDate, pszMonth + std::string(" 31 2045")));
    for (const char* pszText : {"2x45-0x-1x", "0x/1x/2x1x", "2045-09/12"})
        trace("SetDate ", Set(&CFwVersion::SetDate, pszText));
    for (const char* pszText : {"1A2B", "g"})
        trace("SetVersionByte ", Set(&CFwVersion::SetVersionByte, pszText), " SetVersionWord ",
              Set(&CFwVersion::SetVersionWord, pszText));
    for (const char* pszText : {"3.14.15", "3.14", "3"})
        trace("SetVersion by \"%d.%d.%d\" ", Set(&CFwVersion::SetVersion, pszText, "%d.%d.%d"));
    EXPECT_FALSE(CFwVersion().Parse(std::string(1000000, '9').c_str()));
}

TEST(FwVersion, PrintsAndPacksWhatIsThere)
{
    CTranscript trace("version-fields");
    for (const char* pszFields :
         {"", "Minor=7", "Major=7", "VersionByte=5 VersionWord=533", "VersionWord=533 Year=2045 Month=1 Day=31",
          "Revision=5", "Month=9 Day=12", "Year=2119 Month=15 Day=31", "Major=12 Minor=5 Year=7 Month=9 Day=12"}) {
        CFwVersion version = Record(pszFields);
        const int index = version.GetSysRomIndex();
        trace(pszFields, ":", Describe(version), " GetSysRomIndex ", index);
        const BOOL set = version.SetDateFromSysRomIndex(index);
        trace("SetDateFromSysRomIndex ", set, ":", Describe(version));
    }
    trace("NullVersion:", Describe(CFwVersion::NullVersion), " ", CFwVersion::NullVersion.MajorMinorFormat);
}

TEST(FwVersion, Compares)
{
    const char* const pairs[][2] = {
        {"", ""},
        {"Major=1 Minor=23", "Major=1 Minor=5"},
        {"Major=2", "Major=1 Minor=99"},
        {"Minor=3", "VersionByte=4"},
        {"VersionByte=16", "VersionWord=512"},
        {"VersionByte=16 VersionWord=1", "VersionByte=17 VersionWord=3"},
        {"VersionWord=512", "VersionWord=255"},
        {"Major=2147483647", "Major=-2147483648"},
        {"Year=2045", "Major=1"},
        {"Major=1 Year=2024 Month=12 Day=31", "Major=1 Year=2025 Month=1 Day=1"},
        {"Major=1 Year=2024 Month=9 Day=12", "Major=1 Year=2024 Month=11 Day=1"},
        {"Major=1 Year=2024 Month=9 Day=12", "Major=1 Year=2024 Month=9 Day=2"},
        {"Major=1", "Major=1 Year=2024 Month=9 Day=12"},
        {"Major=1 Revision=300", "Major=1 Revision=5"},
        {"Major=1 Revision=300 UseRevision=1", "Major=1 Revision=5"},
        {"Major=1 Revision=300 UseRevision=1", "Major=1 Revision=5 UseRevision=1"},
        {"Major=1 Revision=5 UseRevision=1", "Major=1 Revision=5 UseRevision=1"},
        {"Major=2 Year=2024", "Major=1 Year=2025 CompareDateFirst=1"},
        {"Major=2 Year=2024 CompareDateFirst=1", "Major=1 Year=2025 CompareDateFirst=1"},
        {"Major=2 Year=2024 CompareDateFirst=1", "Major=1 Year=2024 CompareDateFirst=1"},
    };
    for (const auto& [left, right] : pairs) {
        const CFwVersion a = Record(left);
        const CFwVersion b = Record(right);
        const int order = CFwVersion::Compare(&a, &b);
        EXPECT_TRUE((a < b) == (order < 0) && (a > b) == (order > 0) && (a == b) == (order == 0)) << left;
    }
    CTranscript trace("version-comparison");
    for (const auto& [left, right] : pairs) {
        for (const auto& [first, second] : {std::pair(left, right), std::pair(right, left)}) {
            const CFwVersion a = Record(first);
            const CFwVersion b = Record(second);
            trace("a: ", first, "; b: ", second);
            trace("Compare ", CFwVersion::Compare(&a, &b), ", CompareDate ", CFwVersion::CompareDate(&a, &b));
            trace("CompareVersion ", CFwVersion::CompareVersion(&a, &b));
        }
    }
    const CFwVersion same = Record("Major=3 Minor=14 Revision=15");
    trace("with itself: Compare ", CFwVersion::Compare(&same, &same));
}
