#include <tuple>

#include "fwversion.h"
#include "tests/support.h"

namespace
{

// The eight numbers in one text: byte word major.minor.revision year-month-day.
std::string Numbers(const CFwVersion& v)
{
    CStr text;
    text.Format("%X %X %d.%d.%d %d-%d-%d", static_cast<unsigned>(v.VersionByte), static_cast<unsigned>(v.VersionWord),
                v.Major, v.Minor, v.Revision, v.Year, v.Month, v.Day);
    return text.GetAnsiString();
}

CFwVersion Version(const char* text)
{
    CFwVersion version;
    version.Parse(text);
    return version;
}

const char* const Nothing = "0 0 0.0.0 0-0-0";

}  // namespace

TEST(FwVersion, ParsesEveryForm)
{
    const std::tuple<const char*, BOOL, const char*, const char*> cases[] = {
        {"1.23", 1, "0 0 1.23.0 0-0-0", "1.23"},
        {"1.5", 1, "0 0 1.5.0 0-0-0", "1.05"},
        {"1.234", 1, "0 0 1.23.0 0-0-0", "1.23"},
        {"2.10 (09/12/2014)", 1, "0 0 2.10.0 2014-9-12", "2.10 (09/12/2014)"},
        {"v2.10 (09/12/2014)", 1, "0 0 2.10.0 2014-9-12", "2.10 (09/12/2014)"},
        {"P70 v2.10 (09/12/2014)", 1, "0 0 2.10.0 2014-9-12", "2.10 (09/12/2014)"},
        {"P7- v2.10 (09/12/2014)", 0, Nothing, "Unknown"},
        {"770 v2.10 (09/12/2014)", 0, Nothing, "Unknown"},
        {"1.23 (2014.09.12)", 1, "0 0 1.23.0 2014-9-12", "1.23 (09/12/2014)"},
        {"1.23 (13-45-2014)", 1, "0 0 1.23.0 2014-13-45", "1.23 (13/45/2014)"},
        {"1.23 (09.12.2014)", 0, Nothing, "Unknown"},
        {"1.23 (Sep 12 2014)", 1, "0 0 1.23.0 0-0-0", "1.23"},
        {"1.23_2014-09-12", 1, "0 0 1.23.0 2014-9-12", "1.23 (09/12/2014)"},
        {"1.23_2014-09/12", 0, Nothing, "Unknown"},
        {"2014/09/12", 1, "0 0 0.0.0 2014-9-12", "09/12/2014"},
        {"Sep 12 2014", 1, "0 0 0.0.0 2014-9-12", "09/12/2014"},
        {"dec  1 2014", 0, Nothing, "Unknown"},
        {"Spt 12 2014", 0, Nothing, "Unknown"},
        {"Sep 12 x014", 0, Nothing, "Unknown"},
        {"1A", 1, "1A 0 0.0.0 0-0-0", "1A"},
        {"0X1a", 1, "1A 0 0.0.0 0-0-0", "1A"},
        {"12", 1, "12 0 0.0.0 0-0-0", "12"},
        {"0215", 1, "0 215 0.0.0 0-0-0", "0215"},
        {"0x0215", 1, "0 215 0.0.0 0-0-0", "0215"},
        {"0x", 0, Nothing, "Unknown"},
        {"123", 0, Nothing, "Unknown"},
        {"", 0, Nothing, "Unknown"},
    };
    for (const auto& [text, accepted, numbers, printed] : cases) {
        CFwVersion version = Version("7.77 (01/02/2003)");
        version.UseRevision = TRUE;
        EXPECT_EQ(accepted, version.Parse(text)) << text;
        EXPECT_EQ(numbers, Numbers(version)) << text;
        EXPECT_STREQ(printed, version.ToString()) << text;
        EXPECT_TRUE(version.UseRevision);
    }
    EXPECT_FALSE(CFwVersion().Parse(std::string(1000000, '9').c_str()));
}

TEST(FwVersion, TestsDatesAtTheirFixedPositionsOnly)
{
    CFwVersion version;
    EXPECT_TRUE(version.SetDate("2x14-0x-1x"));
    EXPECT_EQ("0 0 0.0.0 2-0-1", Numbers(version));
    EXPECT_TRUE(version.SetDate("0x/1x/2x1x"));
    EXPECT_EQ("0 0 0.0.0 2-0-1", Numbers(version));
    EXPECT_FALSE(version.SetDate("2014-09/12"));
    EXPECT_EQ(Nothing, Numbers(version));
}

TEST(FwVersion, ScansAndPrintsByItsFormat)
{
    CFwVersion version;
    version.MajorMinorFormat = "%d.%d.%d";
    EXPECT_TRUE(version.SetVersion("3.4.5"));
    EXPECT_EQ("0 0 3.4.5 0-0-0", Numbers(version));
    EXPECT_STREQ("3.4.5", version.ToString());
    EXPECT_TRUE(version.SetVersion("3.4"));
    EXPECT_EQ("0 0 3.4.0 0-0-0", Numbers(version));
    EXPECT_FALSE(version.SetVersion("3"));
    EXPECT_EQ(Nothing, Numbers(version));
}

TEST(FwVersion, PacksTheDateForTheSystemRom)
{
    CFwVersion version = Version("09/12/2014");
    EXPECT_EQ(11564, version.GetSysRomIndex());
    version.SetDateFromSysRomIndex(11564);
    EXPECT_EQ("0 0 0.0.0 11264-288-12", Numbers(version));
}

TEST(FwVersion, ComparesVersionThenDate)
{
    const std::tuple<const char*, const char*, int> cases[] = {
        {"1.23", "1.5", 18},
        {"2.00", "1.99", 1},
        {"1.23 (09/12/2014)", "1.23 (01/01/2015)", -1},
        {"1.23 (09/12/2014)", "1.23 (11/01/2014)", -2},
        {"1.23 (09/12/2014)", "1.23 (09/02/2014)", 10},
        {"1.23", "1.23 (09/12/2014)", 0},
        {"10", "0200", 0x10},
        {"0200", "0100", 0x100},
        {"09/12/2014", "1.23", -1},
        {"09/12/2014", "09/13/2014", -1},
        {"", "", 0},
    };
    for (const auto& [left, right, result] : cases) {
        const CFwVersion a = Version(left);
        const CFwVersion b = Version(right);
        EXPECT_EQ(result, CFwVersion::Compare(&a, &b)) << left << " / " << right;
        EXPECT_EQ(result < 0, a < b);
        EXPECT_EQ(result > 0, a > b);
        EXPECT_EQ(result == 0, a == b);
    }
}

TEST(FwVersion, ComparesAsBothRecordsAsk)
{
    CFwVersion a = Version("2.00 (01/01/2014)");
    CFwVersion b = Version("1.00 (01/01/2015)");
    a.CompareDateFirst = TRUE;
    EXPECT_EQ(1, CFwVersion::Compare(&a, &b));
    b.CompareDateFirst = TRUE;
    EXPECT_EQ(-1, CFwVersion::Compare(&a, &b));

    a = b = Version("1.23");
    a.Revision = 5;
    a.UseRevision = TRUE;
    EXPECT_EQ(0, CFwVersion::CompareVersion(&a, &b));
    b.UseRevision = TRUE;
    CLogCapture log;
    EXPECT_EQ(5, CFwVersion::CompareVersion(&a, &b));
    EXPECT_EQ(0, CFwVersion::Compare(&a, &a));
    EXPECT_EQ(
        "fwversion::CompareVersion::Compare Major/Minorfwversion::CompareVersion::compare revision"
        "fwversion::CompareVersion::Revision difference 5fwversoin::Compare: pver1:  1:23:dfwversoin::Compare: pver2:  "
        "1:23:d",
        log.Text());
}
