// What an installer reads of its package and its command line, beside what the library reads: settings, the header of a
// ROM image, an Intel HEX text, switches. The first byte says which.
#include <algorithm>

#include "devicefw/devicefw.h"
#include "fuzz/channel.h"
#include "fuzz/fuzz.h"
#include "host/switches.h"
#include "powercontroller/hexpieces.h"
#include "systemrom/romimage.h"

// Settings are searched from their start for each key; the longest input has 4 KiB.
const CStepBound StepBound = {20000, 500};

namespace
{

const char szDescription[] =
    "<zal_package><version value=\"2.0\"/><name><name_xlate lang=\"en\">Card</name_xlate></name></zal_package>";

class CCard : public CDeviceFirmware
{
  protected:
    // No driver is there that could be missing.
    CStr ReadSettings() override
    {
        m_bInitError = FALSE;
        return CDeviceFirmware::ReadSettings();
    }
};

void ReadSettings(CInput& input)
{
    WriteFile("qx.xml", reinterpret_cast<const std::uint8_t*>(szDescription), sizeof szDescription - 1);
    WriteFile("settings.ini", input.Data(), input.Size());
    CInput silence(nullptr, 0);
    UseReplies(silence);
    CCard card;
    card.Initialize();
    REQUIRE(card.GetLeft() == Left_Untouched);
}

void ReadHeader(const CInput& input)
{
    std::vector<char> image(RomBlockSize);
    const std::size_t size = std::min(input.Size(), image.size());
    std::copy_n(input.Data(), size, image.end() - static_cast<std::ptrdiff_t>(size));
    CStr family;
    CFwVersion version;
    if (ReadRomHeader(image.data(), RomBlockSize, family, version)) {
        REQUIRE(!family.IsEmpty() && family.GetLength() <= MaxRomFamilyLength);
    }
}

void Cut(const CInput& input)
{
    const std::string text(reinterpret_cast<const char*>(input.Data()), input.Size());
    int from = 0;
    for (const HexPiece& piece : CutHex(text.c_str(), static_cast<int>(text.size()))) {
        REQUIRE(piece.End > from && piece.End <= static_cast<int>(text.size()));
        REQUIRE(piece.Digits >= 0 && piece.Digits < piece.End - from);
        from = piece.End;
    }
}

void ReadCommandLine(CInput& input)
{
    std::vector<std::vector<char>> arguments = {{'x', '\0'}};
    while (!input.IsEmpty()) arguments.push_back(input.Text('\n'));
    std::vector<char*> argv;
    for (std::vector<char>& argument : arguments) argv.push_back(argument.data());
    Switches switches = {};
    const bool valid = ReadSwitches(static_cast<int>(argv.size()), argv.data(), switches);
    REQUIRE(!valid || !switches.pszKeepFolder || switches.pszKeepFolder[0] != '\0');
}

}  // namespace

void Fuzz(CInput& input)
{
    switch (input.Byte() % 4) {
        case 0:
            return ReadSettings(input);
        case 1:
            return ReadHeader(input);
        case 2:
            return Cut(input);
        default:
            return ReadCommandLine(input);
    }
}
