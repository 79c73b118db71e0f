// An installer that is loaded once for many runs.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

#include "support/descriptor.h"
#include "support/process.h"

class CLoadedProgram
{
  public:
    explicit CLoadedProgram(std::vector<std::string> command) : m_Command(std::move(command)) {}
    ~CLoadedProgram();
    CLoadedProgram(const CLoadedProgram&) = delete;
    CLoadedProgram& operator=(const CLoadedProgram&) = delete;

    // Starts a run, as ProcessGifts::Start does; the environment of the first one asks for the simulation below it.
    // ENOSYS for a program that can't be loaded.
    int Start(const ProcessStart& start, pid_t& process);

  private:
    void Load(const ProcessStart& run);

    std::vector<std::string> m_Command;
    CDescriptor m_Socket;
    pid_t m_Process = 0;  // 0: none
    bool m_bTried = false;
};
