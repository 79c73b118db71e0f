// Umbrella over the foundation classes and the platform information.
#pragma once

#include "zalph/arrays.h"
#include "zalph/commandline.h"
#include "zalph/evtlog.h"
#include "zalph/inifile.h"
#include "zalph/smbios.h"
#include "zalph/str.h"
#include "zalph/system.h"
