// A channel library whose processor answers what the input says.
#pragma once

#include "fuzz/fuzz.h"

// The processor's answers come from this input from now on. Each is
//   a byte: 00 to BF a reply to the request, C0 to DF one whose number is off by the low five bits, E0 to FF none, with
//           the status that the next byte names; 40 in a reply: its header states the length in the next two bytes;
//           80 in a reply to an I2C request: the bytes are what the device sent, and their checksum is made right;
//   a byte: how many bytes follow the header, and then these.
// A byte FF where something is opened or sent makes that fail with the status that the next byte names. When nothing is
// left, the processor is silent.
void UseReplies(CInput& input);
