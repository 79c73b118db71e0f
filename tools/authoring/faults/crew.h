// Does many pieces of work on all cores.
#pragma once

#include <functional>
#include <string>

#include "support/process.h"

struct Crew
{
    int Jobs;          // processes that work at once
    const char* Name;  // of the work, for the line that shows how far it is
};

// Does pieces 0 to count - 1, each in one of the processes, and hands what comes of them, a line each of at most
// MaxCrewLine bytes, to take in this one, as they come. Shows on a terminal how far the work is and how long it still
// takes. False when the operator has stopped it.
bool DoWork(const Crew& crew, int count, const std::function<std::string(CProcessRunner&, int worker, int piece)>& work,
            const std::function<void(const std::string& line)>& take);

const std::size_t MaxCrewLine = 4096;

// Processors that this process may use.
int CountProcessors();
