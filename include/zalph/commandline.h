// Splits a command line into arguments of the form option or option:parameter.
#pragma once

#include "types.h"
#include "zalph/arrays.h"
#include "zalph/str.h"

// The arguments of a command line: what stands between spaces. Tabs and quotes are ordinary characters. An index must
// be in range.
class FLASHLIB_API CCommandLine
{
  public:
    CCommandLine(char* text);  // copies the text

    // Appends the command line's arguments to the array; the constructor has done so already.
    void Parse();

    int GetNumArgs() const;              // number of arguments
    CStr GetArg(int index) const;        // all of it
    CStr GetArgOption(int index) const;  // what is before the first ':', all where there is none
    CStr GetArgParam(int index) const;   // what is behind it, empty where there is none
    BOOL HasArgParam(int index) const;   // TRUE when there is a ':', even with nothing behind it

    // Index of the first argument that equals text, whose option equals option; -1 when there is none.
    int FindArg(CStr text) const;
    int FindArgOption(CStr option) const;

    // TRUE when every option occurs somewhere in the syntax text, and every option with a parameter occurs there with a
    // ':' behind it and has one that is not empty. Part of a longer option passes, and a parameter may be left out.
    BOOL VerifySyntax(CStr syntax) const;

  private:
    CStr m_sCommandLine;  // without spaces around it
    CStrArray m_sArgArray;
};
