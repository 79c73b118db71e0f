#include "tools/deploy/table.h"

#include <algorithm>
#include <cstdio>

namespace
{

using Row = std::vector<std::string>;

// Columns on the screen of UTF-8 text.
std::size_t Width(const std::string& text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void PrintRow(const Row& row, const std::vector<std::size_t>& widths)
{
    std::string line;
    for (std::size_t i = 0; i < row.size(); i++) {
        const std::string cell = row[i].empty() ? "-" : row[i];
        line += cell;
        if (i + 1 < row.size()) line.append(widths[i] - Width(cell) + 2, ' ');
    }
    std::printf("%s\n", line.c_str());
}

}  // namespace

void PrintTable(const std::vector<Row>& rows)
{
    std::vector<std::size_t> widths(rows[0].size(), 1);
    for (const Row& row : rows)
        for (std::size_t i = 0; i < row.size(); i++) widths[i] = std::max(widths[i], Width(row[i]));
    PrintRow(rows[0], widths);
    Row rule;
    for (std::size_t i = 0; i < widths.size(); i++)
        rule.emplace_back(i + 1 < widths.size() ? widths[i] : Width(rows[0][i]), '-');
    PrintRow(rule, widths);
    for (std::size_t i = 1; i < rows.size(); i++) PrintRow(rows[i], widths);
}
