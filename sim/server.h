// A simulated server: ties its rooms together.
#pragma once

#include <exception>
#include <filesystem>
#include <memory>
#include <string>

#include "sim/base/device.h"
#include "sim/base/journal.h"
#include "sim/base/memory.h"
#include "sim/base/runoptions.h"
#include "sim/base/state.h"
#include "sim/bmc/bmc.h"
#include "sim/description.h"
#include "sim/processor/channel.h"
#include "sim/processor/processor.h"
#include "sim/rom/flashpart.h"
#include "sim/smbios/smbios.h"

namespace sim
{

class CServer
{
  public:
    // The server in a folder; of the options, the faults and the journal are its own. Throws std::runtime_error with a
    // sentence for the user.
    explicit CServer(const std::filesystem::path& folder, const RunOptions& options = ReadRunOptions());
    CServer(const CServer&) = delete;
    CServer& operator=(const CServer&) = delete;

    CServerFolder& GetFolder() { return m_Folder; }
    const ServerDescription& GetDescription() const { return m_Description; }
    const SmbiosTables& GetSmbios() const { return m_Smbios; }
    CMemory& GetMemory() { return m_Memory; }
    CFlashPart& GetFlashPart() { return m_FlashPart; }
    CBmc& GetBmc() { return m_Bmc; }
    CCapture& GetCapture() { return m_Journal.GetCapture(); }

    // Null without a management processor.
    const CProcessor* GetProcessor() const { return m_pProcessor.get(); }
    CChannelDriver* GetChannelDriver() { return m_pChannelDriver.get(); }

    // True for a path that the server plays, whether or not it has such a device.
    static bool OwnsPath(const std::string& path);

    // Opens one of those with the flags of open; null with errno when the server does not have it or not so.
    std::unique_ptr<IDevice> Open(const std::string& path, int flags);

  private:
    SmbiosTables MakeSmbios() const;

    CServerFolder m_Folder;
    const ServerDescription m_Description;
    CJournal m_Journal;
    CFlashPart m_FlashPart;
    CBmc m_Bmc;
    std::unique_ptr<CProcessor> m_pProcessor;
    std::unique_ptr<CChannelDriver> m_pChannelDriver;
    SmbiosTables m_Smbios;
    CMemory m_Memory;
};

// Restarts the server in a folder, with no program on it: what was flashed and waits for that then runs. Throws
// std::runtime_error with a sentence for the user.
void RestartServer(const std::filesystem::path& folder, const RunOptions& options = ReadRunOptions());

// Says why the simulation can't go on, and ends the process: no exception may enter the installer.
[[noreturn]] void EndProcess(const std::exception& error);

// Does what an entry point does for the installer.
template <typename Action>
auto OrEndProcess(Action action) noexcept
{
    try {
        return action();
    } catch (const std::exception& error) {
        EndProcess(error);
    }
}

// The server that this process runs on: the one set last, else the one that the run options name, else null: the
// process then sees the real host. A server that can't be read ends the process.
CServer* CurrentServer();
void SetCurrentServer(std::unique_ptr<CServer> server);

// True when it was asked for, or set.
bool HasCurrentServer();

}  // namespace sim
