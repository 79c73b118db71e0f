// A date text, and the date as the number in which the system ROM packs it.
#include "fuzz/fuzz.h"
#include "fwversion.h"

const CStepBound StepBound = {1000, 10};

void Fuzz(CInput& input)
{
    const std::vector<char> text = input.Text();
    CFwVersion version;
    const bool isDate = version.SetDate(text.data());
    REQUIRE(isDate || (version.Year == 0 && version.Month == 0 && version.Day == 0));
    version.ToString();
    const int index = version.GetSysRomIndex();
    version.SetDateFromSysRomIndex(input.IsEmpty() ? index : static_cast<int>(input.Word(4)));
    version.GetSysRomIndex();
    version.ToString();
    REQUIRE(version.Parse(text.data()) || !isDate);
}
