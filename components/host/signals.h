// Keeps signals from hardware that is being written.
#pragma once

// Holds every signal that can be held, to the end of the process: hardware that is being written is written to its end,
// and what a signal wanted to cut off then ends by itself, with its own last words and exit status.
void HoldSignals();
