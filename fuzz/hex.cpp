// An Intel HEX text behind two bytes with the size of the image that it goes into.
#include "fuzz/fuzz.h"
#include "pwrmicro.h"

const CStepBound StepBound = {1000, 10};

void Fuzz(CInput& input)
{
    std::vector<UINT8> image(input.Word(2));
    const char* pText = reinterpret_cast<const char*>(input.Data());
    const int length = static_cast<int>(input.Size());
    CPowerMicro power(nullptr);
    const BOOL valid = power.ValidateHex(pText, length);
    REQUIRE(!power.ExtractHex(pText, length, image.data(), static_cast<int>(image.size())) || valid);
}
