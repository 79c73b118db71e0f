#include "tools/deploy/onlyone.h"

#include <poll.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

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
    std::error_code ignored;
    if (!options.Server.empty() && !fs::exists(fs::path(options.Server) / "server.json", ignored)) return lock;
    const std::string root = Root(options);
    const auto limit = Clock::now() + std::chrono::duration<double>(options.Wait);
    CServerLock::State state = lock.Take("zaldeploy", root);
    if (state == CServerLock::State_Busy && options.Wait > 0)
        std::fprintf(stderr, "zaldeploy: %s. Waiting until it ends ...\n", lock.Problem().c_str());
    while (state == CServerLock::State_Busy && Clock::now() < limit) {
        poll(nullptr, 0, WaitStep);
        state = lock.Take("zaldeploy", root);
    }
    if (state == CServerLock::State_Busy)
        throw CServerBusy(lock.Problem() +
                          ". Nothing was done. Run zaldeploy again when that has ended, or with --wait");
    if (state == CServerLock::State_NoPlace) throw std::runtime_error(lock.Problem() + ". Nothing was done");
    lock.Share();
    return lock;
}
