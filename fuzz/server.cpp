// The description of a simulated server, or a file of its state. The first byte says which.
#include "sim/server.h"

#include <fstream>

#include "fuzz/fuzz.h"
#include "platformids.h"
#include "smif.h"
#include "support/tempfolder.h"

const CStepBound StepBound = {100, 0};

namespace
{

namespace fs = std::filesystem;

// A server with a device of every kind that keeps something.
const char szServer[] = R"({
    "rom": { "family": "P70", "version": "2.30", "date": "09/12/2019", "size": 65536 },
    "management_processor": {
        "i2c": [{ "type": "eeprom", "bus": 1, "address": 80, "data": "x" },
                { "type": "power_controller", "bus": 3, "address": 48, "family": "zephyra" }],
        "power_pic": { "version": "1.4.2" },
        "tamberline": { "version": "1.2.5", "loader_version": "1.0", "family": 3,
                        "flash": { "handler": "TMBR", "size": 65536, "busy_seconds": 1 } }
    }
})";

const char* const Files[] = {"server.json",         "processor.json",  "registers.json", "powercontroller.json",
                             "powercontroller.bin", "eeprom-1-80.bin", "TMBR.fw",        "vrl.bin"};

template <typename Request>
void Ask(sim::CChannelDriver& driver, Request request, WORD command)
{
    request.Length = sizeof request;
    request.Command = command;
    ZALCIHANDLE handle = {};
    std::uint8_t reply[4096];
    std::size_t size = 0;
    driver.Create(handle, {1, 4096}, {1, 4096});
    driver.Send(handle, &request, sizeof request);
    driver.Receive(handle, reply, sizeof reply, 1000, size);
    driver.Close(handle);
}

void AskForWhatIsKept(sim::CServer& server)
{
    server.GetFlashPart().GetRunning();
    server.GetFlashPart().GetNext();
    server.GetBmc().GetLog();
    if (!server.GetChannelDriver()) return;
    for (const sim::CFlashDevice& device : server.GetProcessor()->GetFlashDevices()) device.GetFirmware();
    SMIFREQ_I2C_TRANSACTION transaction = {};
    transaction.ReadLength = 1;
    transaction.WriteLength = 1;
    transaction.Magic[0] = PlatformI2CMagicLow;
    transaction.Magic[1] = PlatformI2CMagicHigh;
    for (const auto& place : {std::pair(1, 80), std::pair(3, 48)}) {
        transaction.Bus = static_cast<BYTE>(place.first);
        transaction.Address = static_cast<WORD>(place.second);
        Ask(*server.GetChannelDriver(), transaction, SMIFCMD_I2C_TRANSACTION);
    }
    Ask(*server.GetChannelDriver(), SMIFREQ_IO_ACCESS{}, SMIFCMD_IO_ACCESS);
}

}  // namespace

void Fuzz(CInput& input)
{
    static const CTempFolder folder("flashfuzz");
    const char* const pszFile = Files[input.Byte() % std::size(Files)];
    std::ofstream(folder.Path() / "server.json") << szServer;
    std::ofstream(folder.Path() / pszFile, std::ios::binary)
        .write(reinterpret_cast<const char*>(input.Data()), static_cast<std::streamsize>(input.Size()));
    try {
        sim::RunOptions options;
        options.Journal = "/dev/null";
        sim::CServer server(folder.Path(), options);
        AskForWhatIsKept(server);
    } catch (const std::runtime_error& error) {
        REQUIRE(error.what()[0] != '\0');
    }
    for (const char* pszKept : Files) fs::remove(folder.Path() / pszKept);
}
