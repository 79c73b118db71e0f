// The switches of an installer.
#pragma once

// How they are used, with a %s for the installer's name.
extern const char* const SwitchesUsage;

struct Switches
{
    bool Help;
    bool Discovery;
    bool Folder;
    bool Force;
    bool Silent;
    const char* pszKeepFolder;
    const char* pszRestored;
};

// Reads which switches are given; false for a command line that makes no sense.
bool ReadSwitches(int argc, char** argv, Switches& switches);
