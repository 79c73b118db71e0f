#include "sim/images/firmwareversion.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <vector>

namespace sim
{

namespace
{

[[noreturn]] void Refuse(const std::string& what, const std::string& text)
{
    throw std::runtime_error(what + " can't be \"" + text + "\"");
}

// The numbers of a text that has nothing else than a separator between them; none of any other text.
std::vector<unsigned> SplitNumbers(const std::string& text, char separator)
{
    std::vector<unsigned> numbers;
    const char* pEnd = text.data() + text.size();
    for (const char* pText = text.data();; pText++) {
        unsigned number = 0;
        const auto parsed = std::from_chars(pText, pEnd, number);
        if (parsed.ec != std::errc()) return {};
        numbers.push_back(number);
        if (parsed.ptr == pEnd) return numbers;
        if (*parsed.ptr != separator) return {};
        pText = parsed.ptr;
    }
}

bool IsDate(unsigned month, unsigned day, unsigned year)
{
    if (month < 1 || month > 12 || year < 1000 || year > 9999) return false;
    const bool leaps = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    const unsigned february = leaps ? 29 : 28;
    const bool isLong = month < 8 ? month % 2 == 1 : month % 2 == 0;
    return day >= 1 && day <= (month == 2 ? february : isLong ? 31 : 30);
}

}  // namespace

FirmwareVersion ParseFirmwareVersion(const std::string& version, const std::string& date)
{
    FirmwareVersion parsed = {};
    if (!version.empty()) {
        std::vector<unsigned> numbers = SplitNumbers(version, '.');
        if (numbers.size() == 2) numbers.push_back(0);
        if (numbers.size() != 3 || *std::max_element(numbers.begin(), numbers.end()) > 255) Refuse("version", version);
        parsed.Major = static_cast<std::uint8_t>(numbers[0]);
        parsed.Minor = static_cast<std::uint8_t>(numbers[1]);
        parsed.Pass = static_cast<std::uint8_t>(numbers[2]);
    }
    if (!date.empty()) {
        const std::vector<unsigned> numbers = SplitNumbers(date, '/');
        if (numbers.size() != 3 || !IsDate(numbers[0], numbers[1], numbers[2])) Refuse("date", date);
        parsed.Month = static_cast<std::uint8_t>(numbers[0]);
        parsed.Day = static_cast<std::uint8_t>(numbers[1]);
        parsed.Year = static_cast<std::uint16_t>(numbers[2]);
    }
    return parsed;
}

std::string VersionText(const FirmwareVersion& version)
{
    const std::string text = std::to_string(version.Major) + "." + std::to_string(version.Minor);
    return version.Pass == 0 ? text : text + "." + std::to_string(version.Pass);
}

}  // namespace sim
