// Two version texts, a line each: parsed, printed and compared.
#include "fuzz/fuzz.h"
#include "fwversion.h"

const CStepBound StepBound = {10000, 100};

namespace
{

CFwVersion Parsed(const char* pszText, const char* pszFormat)
{
    CFwVersion version;
    version.MajorMinorFormat = pszFormat;
    version.SetVersionByte(pszText);
    version.SetVersionWord(pszText);
    version.SetVersion(pszText);
    if (!version.Parse(pszText)) REQUIRE(version == CFwVersion::NullVersion);
    REQUIRE(!version.ToString().IsEmpty());
    return version;
}

}  // namespace

void Fuzz(CInput& input)
{
    const std::vector<char> first = input.Text('\n');
    const std::vector<char> second = input.Text('\n');
    for (const char* pszFormat : {CFwVersion::DefaultMajorMinorFormat, "%d.%d.%d"}) {
        CFwVersion a = Parsed(first.data(), pszFormat);
        CFwVersion b = Parsed(second.data(), pszFormat);
        for (int flags = 0; flags < 4; flags++) {
            a.UseRevision = b.UseRevision = flags & 1;
            a.CompareDateFirst = b.CompareDateFirst = flags >> 1;
            REQUIRE((a == b) == (b == a));
            REQUIRE(CFwVersion::Compare(&a, &a) == 0);
        }
    }
}
