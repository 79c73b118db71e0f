// The SMIF commands by name.
#pragma once

#include <string>

#include "smif.h"

namespace sim
{

// "GET_STATUS" for SMIFCMD_GET_STATUS; "?" for a code that no command has.
const char* FindCommandName(WORD code);

// 0 for a name that no command has.
WORD FindCommandCode(const std::string& name);

}  // namespace sim
