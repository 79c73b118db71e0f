// Cuts an Intel HEX text into pieces that can be flashed one after the other.
#pragma once

#include <vector>

// A piece of a text: from where the piece before it ends up to the colon of the next record. Nothing in it is decoded.
struct HexPiece
{
    int Digits;  // behind the record's colon
    int End;     // bytes from the start of the text
};

// Cuts in front of the colon of each record, as CPowerMicro reads a text: the character behind a record's digits is
// passed over, whatever it is, and a comment runs from a ';' to the end of its line. This holds for records of an even
// number of digits.
std::vector<HexPiece> CutHex(const char* text, int length);
