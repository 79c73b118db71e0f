#include "tools/deploy/onlyone.h"

#include <poll.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>

#include "tools/deploy/screen.h"
#include "tools/deploy/statefolder.h"

namespace
{

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

const int WaitStep = 100;  // ms

// Where the root of the server is: empty for the real one.
std::string Root(const DeployOptions& options)
{
    if (options.Server.empty()) return "";
    fs::path root = fs::absolute(options.Server);
    std::error_code ignored;
    fs::create_directory(root / "run", ignored);
    return root.string();
}

}  // namespace

CServerLock LockServer(const DeployOptions& options)
{
    CServerLock lock;
    if (!HasServer(options)) return lock;
    const std::string root = Root(options);
    const auto limit = Clock::now() + std::chrono::duration<double>(options.Wait);
    CServerLock::State state = lock.Take("zaldeploy", root);
    if (state == CServerLock::State_Busy && options.Wait > 0)
        CScreen(options).Notice("zaldeploy: " + lock.Problem() + ". Waiting until it ends ...");
    while (state == CServerLock::State_Busy && Clock::now() < limit) {
        poll(nullptr, 0, WaitStep);
        state = lock.Take("zaldeploy", root);
    }
    if (state == CServerLock::State_Busy)
        throw CServerBusy(lock.Problem() + ". Nothing was done. Run zaldeploy again when that has ended, or with " +
                          (options.Wait > 0 ? "a longer --wait" : "--wait"));
    if (state == CServerLock::State_NoPlace) throw std::runtime_error(lock.Problem() + ". Nothing was done");
    lock.Share();
    return lock;
}
