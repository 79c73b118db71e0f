#include "report.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "support/jsonline.h"

namespace
{

const int Patience = 2000;  // ms that a tool may leave a line unread

int g_Report = -1;  // descriptor

// The descriptor that the text names; -1 for one that can't be written to.
int ReadDescriptor(const char* text)
{
    char* pEnd = nullptr;
    errno = 0;
    const long number = std::strtol(text, &pEnd, 10);
    if (pEnd == text || *pEnd != '\0' || errno != 0 || number < 0 || number > INT_MAX) return -1;
    const int flags = fcntl(static_cast<int>(number), F_GETFL);
    return flags >= 0 && (flags & O_ACCMODE) != O_RDONLY ? static_cast<int>(number) : -1;
}

void Send(CJsonLine& line)
{
    const char* pText = line.Text();
    for (std::size_t size = line.End(); size > 0 && g_Report >= 0;) {
        pollfd report = {g_Report, POLLOUT, 0};
        const bool ready = poll(&report, 1, Patience) > 0;
        const ssize_t written = ready ? write(g_Report, pText, std::min<std::size_t>(size, PIPE_BUF)) : -1;
        if (written < 0) {
            g_Report = -1;  // half a line may be there: nothing can follow it
            return;
        }
        pText += written;
        size -= static_cast<std::size_t>(written);
    }
}

}  // namespace

const char* ToText(Left left)
{
    static const char* const texts[] = {"untouched", "runs old", "runs new", "incomplete", "unknown"};
    return texts[left];
}

void OpenReport()
{
    const char* const pszValue = std::getenv(ReportVariable);
    if (!pszValue) return;
    g_Report = ReadDescriptor(pszValue);
    unsetenv(ReportVariable);
    if (g_Report < 0) {
        std::fprintf(stderr, "%s names no descriptor that can be written to; nothing is reported there.\n",
                     ReportVariable);
        return;
    }
    if (g_Report > STDERR_FILENO) fcntl(g_Report, F_SETFD, FD_CLOEXEC);
    signal(SIGPIPE, SIG_IGN);
}

void ReportProperties(const char* name, const char* current, const char* offered, int state, const char* message,
                      bool wayBack)
{
    CJsonLine line;
    line.Add("report", "properties");
    line.Add("name", name);
    line.Add("current", current);
    line.Add("offered", offered);
    line.Add("state", state);
    line.Add("message", message);
    line.AddFlag("way_back", wayBack);
    Send(line);
}

void ReportBackup(const char* file)
{
    CJsonLine line;
    line.Add("report", "backup");
    line.Add("file", file);
    Send(line);
}

void ReportProgress(const char* what, int done, int total)
{
    CJsonLine line;
    line.Add("report", "progress");
    line.Add("what", what);
    line.Add("done", done);
    line.Add("total", total);
    Send(line);
}

void ReportResult(const char* message, Left left)
{
    CJsonLine line;
    line.Add("report", "result");
    line.Add("message", message);
    line.Add("left", ToText(left));
    Send(line);
}
