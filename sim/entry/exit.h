// What a process did on the server that it should not have done.
#pragma once

#include <string>
#include <vector>

namespace sim
{

// The complaints about this process, a sentence each; they start anew. Told by itself, with the exit status changed,
// when a process ends that did not ask for them. The ROM utility driver may stay open.
std::vector<std::string> TakeComplaints();

}  // namespace sim
