// Calls functions of every area as old programs do, which keep the stack aligned to 4 bytes only: from each of the four
// alignments. Argument: a package's folder. Compiled without SSE: what crashes for the alignment is the library.
#include <cstdio>
#include <initializer_list>

#include "chif.h"
#include "component.h"
#include "componentxml.h"
#include "crc32.h"
#include "debug.h"
#include "expr.h"
#include "flashtable.h"
#include "pwrmicro.h"
#include "util.h"
#include "zalph.h"

CStr g_InstallLocalDir;

namespace
{

struct CFlasher : CFlashTable
{
    using CFlashTable::GetTableFromBootBlock;
};

bool Crc32()
{
    unsigned char zeros[64] = {};
    return rom_crc32(zeros, sizeof zeros, 0) == 0x758D6336;
}

bool Texts()
{
    CStr text;
    text = 1.5;
    CStrArray texts;
    texts.Add(text);
    return texts.GetAt(0) == "1.500000" && CFwVersion().SetDate("2014-09-12");
}

bool Files()
{
    char line[] = "/a:b /c";
    return CINIFile(FileInComponentDir("settings.ini")).IsValid() && CCommandLine(line).FindArgOption("/c") == 1;
}

bool Platform()
{
    CSystem system;
    return system.GetProductName() == "Quorvant RK740" && system.LogFlashEventToVRL("note") == TRUE;
}

bool Flashing()
{
    return CFlasher().GetTableFromBootBlock(nullptr) == TRUE;
}

bool Processor()
{
    CChannelInterface channel;
    CPowerMicro controller(&channel);
    controller.SetBus(3);
    controller.SetAddress(0x30);
    return channel.ReadCPLD(0, nullptr) && controller.DetermineControllerType();
}

bool Component()
{
    CComponent component;
    component.Initialize();
    char szName[64] = "";
    return component.GetProperty(ZALPROP_NAME, szName, sizeof szName, "en") && szName[0] != '(';
}

bool Expressions()
{
    long value = 0;
    CExprFunction none = {};
    return EvaluateIntegerExpression("1 + 2 * 3", &value, nullptr, &none, nullptr) == ExprError_None && value == 7;
}

// Calls with the stack pointer that many bytes off.
bool CallOff(int bytes, bool (*pfnCall)())
{
    int result;
    asm volatile("movl %%esp, %%edi\n andl $-16, %%esp\n subl %1, %%esp\n call *%2\n movl %%edi, %%esp"
                 : "=&a"(result)
                 : "r"(bytes), "r"(pfnCall)
                 : "ecx", "edx", "edi", "memory", "cc");
    return (result & 0xFF) != 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) return 2;
    g_InstallLocalDir = argv[1];
    for (bool (*pfnCall)() : {Crc32, Texts, Files, Platform, Flashing, Processor, Component, Expressions}) {
        for (int bytes = 0; bytes < 16; bytes += 4) {
            std::fprintf(stderr, "function at %p, %d bytes off\n", reinterpret_cast<void*>(pfnCall), bytes);
            if (!CallOff(bytes, pfnCall)) return 1;
        }
    }
    return 0;
}
