// Requests of the ROM utility driver's node.
#pragma once

const unsigned int ReadMemoryRequest = 2;
const unsigned int VersionRequest = 10;

// Linux itself answers request 2 on every file, with the file system's block size (FIGETBSZ): no driver ever sees it.
// There the request to read memory goes to the node under this number.
const unsigned int RenumberedReadMemory = 0x5102;
