// Umbrella over the foundation classes and the platform information.
#pragma once

#include "zalph/evtlog.h"
#include "zalph/smbios.h"
#include "zalph/str.h"
#include "zalph/system.h"
