// The table of a component's properties that its installer prints, for those who print it and those who read it.
#pragma once

#include <string>

// Names of rows.
inline constexpr const char* PropertyRow_Name = "Name";
inline constexpr const char* PropertyRow_CurrentVersion = "Current version";
inline constexpr const char* PropertyRow_NewVersion = "New version";
inline constexpr const char* PropertyRow_InstallState = "Install state";
inline constexpr const char* PropertyRow_Message = "Message";

// Prints a row to standard output.
void PrintPropertyRow(const char* name, const char* value);

// Reads a printed row; false when the line is none.
bool ReadPropertyRow(const std::string& line, std::string& name, std::string& value);

// A ZALSTATE_.. in words, and back; words that are no state's give 0.
const char* InstallStateText(int state);
int InstallStateFromText(const std::string& text);
