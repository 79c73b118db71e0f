#include "tools/deploy/session.h"

Session::Session(const DeployOptions& options)
    : Options(options), Screen(options), Log(ChooseLog(options)), Server(ReadIdentity(Runner, options))
{
}
