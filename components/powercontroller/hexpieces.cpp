#include "hexpieces.h"

#include <algorithm>
#include <cctype>

std::vector<HexPiece> CutHex(const char* text, int length)
{
    const auto find = [=](int from, auto test) {
        return static_cast<int>(std::find_if(text + from, text + length, test) - text);
    };
    const auto isLineEnd = [](char c) { return c == '\r' || c == '\n'; };
    const auto isNoDigit = [](unsigned char c) { return std::isxdigit(c) == 0; };
    std::vector<HexPiece> pieces;
    for (int position = 0; position < length; position++) {
        if (text[position] == ';') {
            position = find(position, isLineEnd);
        } else if (text[position] == ':') {
            if (!pieces.empty()) pieces.back().End = position;
            const int digits = position + 1;
            position = find(digits, isNoDigit);
            pieces.push_back({position - digits, length});
        }
    }
    return pieces;
}
