// Tells a deployment tool how an installer gets on: JSON lines of at most 8 KiB on the descriptor whose number the
// environment variable FLASHLIB_REPORT holds. "report" says what a line is:
//   "properties"  "name", "current" and "offered" version, "state" (ZALSTATE_..), "message": why it is not offered,
//                 "way_back": true when what an installation replaces can be put back (false where it can't be read)
//   "backup"      "file": where the firmware is kept that is about to be replaced; before the device is touched
//   "progress"    "what", "done" and "total" bytes
//   "result"      "message", "left": "untouched", "runs old", "runs new", "incomplete" or "unknown"
// A result is the last line; without one the installer was cut off. Members and lines of other names may be added.
#pragma once

inline constexpr const char* ReportVariable = "FLASHLIB_REPORT";

// The current version of a device that has no whole firmware.
inline constexpr const char* IncompleteVersion = "Incomplete";

// What an installer leaves in the device.
enum Left
{
    Left_Untouched,
    Left_RunsOld,
    Left_RunsNew,     // where that takes a restart: from then on
    Left_Incomplete,  // it has no whole firmware, or may have none
    Left_Unknown,
};

const char* ToText(Left left);

// Begins to report if the variable says so; takes it out of the environment, and keeps the descriptor from programs
// that are started. Says so on standard error when the variable names no descriptor that can be written to. While this
// process reports, neither a tool that goes nor whoever reads what is printed ends it.
void OpenReport();

// Write a line, and ask for no memory. A tool that is gone, or does not read for a while, gets no more.
void ReportProperties(const char* name, const char* current, const char* offered, int state, const char* message,
                      bool wayBack);
void ReportBackup(const char* file);
void ReportProgress(const char* what, int done, int total);
void ReportResult(const char* message, Left left);
