#include "debug.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "bounded.h"

namespace
{

void PrintHeader(FILE* pFile)
{
    static const char szRule[] =
        "-------------------------------------------------------------------------------"
        "\n";
    const std::time_t now = std::time(nullptr);
    std::fprintf(pFile, "%s\n\t\tFirmware Flash Debug Log\n\n\t\t%s\n%s\n", szRule, std::ctime(&now), szRule);
}

}  // namespace

void _DebugPrintf(const char* format, ...)
{
    static int bDebugLoggingEnabled = -1;
    static char szLogFileName[4096] = "";
    static FILE* pLogFile = nullptr;
    static int bLogFileHeaderPrinted = 0;

    if (bDebugLoggingEnabled == -1) {
        const char* pszVariable = std::getenv("QVFLASHLOG");
        bDebugLoggingEnabled = 1;
        BoundedCopy("the debug log's path", szLogFileName, sizeof szLogFileName,
                    pszVariable ? pszVariable : "/var/zal/flash.debug.log");
    }
    if (bDebugLoggingEnabled == 0) return;  // kept: log-never-disabled

    if (!format) {
        if (pLogFile) {
            std::fputs("\n", pLogFile);
            std::fclose(pLogFile);
            pLogFile = nullptr;
        }
        return;
    }

    char szMessage[1024];
    va_list arguments;
    va_start(arguments, format);
    BoundedFormatV("_DebugPrintf", szMessage, sizeof szMessage, format, arguments);
    va_end(arguments);

    if (!pLogFile) {
        if (szLogFileName[0] == '\0') return;
        pLogFile = std::fopen(szLogFileName, "at");
        if (!pLogFile) {
            std::fprintf(stderr, "Failed to open log file: %s\n", szLogFileName);
            szLogFileName[0] = '\0';  // kept: log-opened-once
            return;
        }
    }
    if (!bLogFileHeaderPrinted) {
        PrintHeader(pLogFile);
        bLogFileHeaderPrinted = 1;
    }
    std::fputs(szMessage, pLogFile);
    std::fflush(pLogFile);
}
