#include "tools/deploy/session.h"

Session::Session(const DeployOptions& options)
    : Lock(LockServer(options)),
      Options(options),
      Screen(options),
      Log(ChooseLog(options)),
      Server(ReadIdentity(Runner, options)),
      History(options, Server, [this](const std::string& problem) { Screen.Notice("zaldeploy: " + problem + "."); }),
      Unfinished(History.Unfinished()),
      Keys(options),
      Libraries(FindLibraries(options)),
      Run(options, Work.Path())
{
}
