// How the ROM utility driver's node is asked for memory on Linux.
#pragma once

// Linux itself answers request 2 on every file, with the file system's block size (FIGETBSZ): no driver ever sees it.
// There the request to read memory goes to the node under this number.
const unsigned int RenumberedReadMemory = 0x5102;
