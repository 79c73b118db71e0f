// Tables on standard output.
#pragma once

#include <string>
#include <vector>

// Prints rows in columns, the first row above a line. An empty cell shows as "-".
void PrintTable(const std::vector<std::vector<std::string>>& rows);
