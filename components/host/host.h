// The host program that all sample installers share: drives a component the way a deployment tool does.
#pragma once

class CComponent;

// Parses the command line, initialises the component, shows its properties as a table, runs discovery when asked and
// the install otherwise, and prints the result. Returns the eReturnCode as exit status.
int RunComponent(CComponent& component, int argc, char** argv);
