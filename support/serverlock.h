// The lock of a server: one program at a time works on its firmware.
#pragma once

#include <string>

#include "support/descriptor.h"

class CServerLock
{
  public:
    enum State
    {
        State_Held,
        State_Busy,     // another program holds it
        State_NoPlace,  // it can't be taken at all
    };

    // Takes the lock, /run/flashlib/lock (or in /var/run, where there is no /run), below the folder that stands for
    // the root of a simulated server; empty: the real one. It is held until this process and those that Share lets hold
    // it, too, have ended, however they do. The name is for the other programs.
    State Take(const std::string& program, const std::string& root = "");

    // Lets the processes that are started from here on hold the lock, too.
    void Share();

    // Why it is not held, without a full stop: who has held it since when, or what is wrong with its place.
    const std::string& Problem() const { return m_sProblem; }

  private:
    State Open(const std::string& root);
    State OpenIn(const std::string& folder);
    State Fail(const std::string& what);

    CDescriptor m_File;
    std::string m_sProblem;
    bool m_bInherited = false;
};
