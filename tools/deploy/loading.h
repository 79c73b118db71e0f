// Takes packages into the private folder, from where they run.
#pragma once

#include "tools/deploy/package.h"
#include "tools/deploy/session.h"

// Checks the package's list of files and its signature, reads each file once, holds it against the list, and writes it
// into a folder of its own; sets what is known of the package since then. Where it can't be run, sets why, and leaves
// no copy. What is not signed is refused, unless the options allow it or the server is a simulated one; a signature
// that is there must be right.
void Load(Session& session, Package& package);
