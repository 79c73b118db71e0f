#include "tools/deploy/reach.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/deploy/identity.h"
#include "tools/deploy/libraries.h"
#include "tools/simulated.h"

bool ReachServer(const DeployOptions& options, char** argv)
{
    if (!options.Server.empty()) {
        if (RunsOnServer(options.Server)) return true;
        CProcessRunner runner;
        ReadIdentity(runner, options);
        return RunOnServer(options.Server, argv);
    }
    const std::string folder = FindLibraries(options).string();
    const char* pszPath = std::getenv("LD_LIBRARY_PATH");
    if (folder.empty() || (pszPath && folder == pszPath)) return true;
    setenv("LD_LIBRARY_PATH", folder.c_str(), 1);
    execv(OwnProgram().c_str(), argv);
    std::fprintf(stderr, "zaldeploy: can't start itself with the libraries in %s: %s\n", folder.c_str(),
                 std::strerror(errno));
    return false;
}
