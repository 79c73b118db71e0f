// What a program prints: a full disk behind it is no success.
#pragma once

// Has standard output written now. Why that fails the first time is kept for EndOutput.
void FlushOutput();

// The exit status of a program that ends: status, or failure and a line on standard error where what it has printed
// could not be written.
int EndOutput(const char* program, int status, int failure);
