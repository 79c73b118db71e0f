// Text from outside, made fit for a terminal.
#pragma once

#include <string>

// The text as one line of UTF-8 that a terminal shows as it stands: tabs become blanks; control characters (C0 and C1),
// marks that turn the direction of writing, line and paragraph separators and what is no UTF-8 become '?'.
std::string Printable(const std::string& text);

// The same for each of its lines.
std::string PrintableLines(const std::string& text);
