// A program of its own on the library alone.
#include <cstdio>

#include "util.h"
#include "zalph.h"

CStr g_InstallLocalDir;

int main()
{
    std::puts(CSystem().GetProductName());
}
