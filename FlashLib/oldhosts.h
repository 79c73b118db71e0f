// Included before everything else in the library: keeps newer C libraries from redirecting the scanf and strtol
// families to C23 versions that the old hosts' C library does not have.
#pragma once

#include <features.h>

#undef __GLIBC_USE_C2X_STRTOL
#define __GLIBC_USE_C2X_STRTOL 0
#undef __GLIBC_USE_C23_STRTOL
#define __GLIBC_USE_C23_STRTOL 0
