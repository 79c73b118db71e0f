// An installer that breaks one rule of the bench, the one that the file "lie" in its package names; without that file
// it is an honest one. Its device is the EEPROM at address 0x50 of bus 1: a version in the last byte, 0 while that is
// not whole, and 64 bytes of firmware at the start. Most lies come to light when the writing fails.
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "chif.h"
#include "component.h"
#include "host/report.h"
#include "support/serverlock.h"
#include "util.h"
#include "zalph.h"

CStr g_InstallLocalDir;

namespace
{

const int Bus = 1;
const int Address = 0x50;
const UCHAR VersionByte = 0xFF;
const int NewVersion = 2;
const int FirmwareSize = 64;
const int ChunkSize = 16;

std::string g_Lie;

bool LiesAbout(const char* rule)
{
    return g_Lie == rule;
}

int End(int status, const char* sentence, Left left)
{
    std::puts(sentence);
    ReportResult(sentence, left);
    return status;
}

// A reply may be lost: once more does no harm.
bool Transfer(CChannelInterface& channel, const UCHAR* request, int size, UCHAR* reply, int replySize)
{
    return channel.I2CTransaction(Bus, Address, request, size, reply, replySize) ||
           channel.I2CTransaction(Bus, Address, request, size, reply, replySize);
}

bool Write(CChannelInterface& channel, UCHAR address, UCHAR byte, int count)
{
    UCHAR request[1 + ChunkSize] = {address};
    for (int i = 1; i <= count; i++) request[i] = byte;
    return Transfer(channel, request, 1 + count, nullptr, 0);
}

bool WriteAll(CChannelInterface& channel)
{
    if (!Write(channel, VersionByte, LiesAbout("current") ? NewVersion : 0, 1)) return false;
    for (int offset = 0; offset < FirmwareSize; offset += ChunkSize)
        if (!Write(channel, static_cast<UCHAR>(offset), 0xA5, ChunkSize)) return false;
    return Write(channel, VersionByte, NewVersion, 1);
}

int Fail(CChannelInterface& channel)
{
    if (LiesAbout("ends")) raise(SIGKILL);
    if (LiesAbout("reports")) return 7;
    if (LiesAbout("writes")) channel.WriteGPO(0, 1);
    if (LiesAbout("gives-back")) static_cast<void>(open("/dev/zero", O_RDONLY));
    if (LiesAbout("litter")) std::ofstream(std::string(std::getenv("TMPDIR")) + "/half") << "an image";
    if (LiesAbout("lock") && fork() == 0) {
        poll(nullptr, 0, 2000);
        _exit(0);
    }
    const char* pszSentence = "The device may be half written: run this installer again.";
    return End(LiesAbout("status") ? 9 : 7, LiesAbout("sentence") ? "It failed." : pszSentence,
               LiesAbout("left") ? Left_Untouched : Left_Incomplete);
}

int Install(CChannelInterface& channel, bool halfWritten)
{
    if (LiesAbout("again") && halfWritten) return End(7, "Nothing was done: the device is broken.", Left_Untouched);
    CSystem system;
    if (LiesAbout("log")) system.LogFlashEventToVRL("firmware 2 flashed");
    if (!WriteAll(channel)) return Fail(channel);
    const bool logged = LiesAbout("log") || system.LogFlashEventToVRL("firmware 2 flashed") != FALSE;
    return End(0,
               logged                  ? "The firmware was flashed."
               : LiesAbout("log-told") ? "The firmware was flashed. The event could not be logged."
                                       : "The firmware was flashed. Whether the event was logged can't be told.",
               Left_RunsNew);
}

}  // namespace

int main(int, char** argv)
{
    char szFolder[PATH_MAX];
    if (!getcwd(szFolder, sizeof szFolder)) std::abort();  // each run has a working folder
    OpenReport();
    std::ifstream(std::string(argv[2]) + "/lie") >> g_Lie;
    CServerLock lock;
    if (lock.Take("liar") != CServerLock::State_Held) return End(8, "Run this installer again later.", Left_Untouched);
    CChannelInterface channel;
    UCHAR version = 0;
    const bool found = Transfer(channel, &VersionByte, 1, &version, 1);
    const char* pszCurrent = !found ? "" : version == 0 ? "Incomplete" : version == NewVersion ? "2" : "1";
    ReportProperties("Firmware", pszCurrent, "2", ZALSTATE_INSTALLEDOLDER, "", false);
    if (!found) return End(7, "The device does not answer. It was not touched.", Left_Untouched);
    if (version == NewVersion) return End(2, "This version is installed already.", Left_Untouched);
    return Install(channel, version == 0);
}
