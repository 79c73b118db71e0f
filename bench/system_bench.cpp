// Whole runs on simulated servers.
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "bench/compare.h"
#include "bench/measurements.h"
#include "chif.h"
#include "sim/images/deviceimage.h"
#include "sim/server.h"
#include "support/files.h"
#include "zalph.h"

namespace
{

namespace fs = std::filesystem;

// A copy of the rack server, with members that take the place of its own; its folder.
std::string MakeServer(const std::string& folder, const std::string& members)
{
    nlohmann::json server = nlohmann::json::parse(ReadWholeFile(SERVERS "/rack/server.json"));
    server.merge_patch(nlohmann::json::parse(members));
    const fs::path path = fs::path(folder) / ("server" + std::to_string(std::hash<std::string>()(members)));
    fs::create_directory(path);
    WriteWholeFile(path / "server.json", server.dump());
    return path.string();
}

bool Upload(CChannelInterface& channel, const std::vector<std::uint8_t>& image)
{
    return channel.OpenDeviceFlash("Large") == 0 &&
           channel.UploadDeviceFlashData("Large", image.data(), static_cast<int>(image.size())) == 0 &&
           channel.ResetDeviceFlash("Large") >= 0;
}

bool WriteFile(const std::string& file, const std::vector<std::uint8_t>& image)
{
    std::ofstream stream(file, std::ios::binary);
    const auto* pBytes = reinterpret_cast<const char*>(image.data());
    for (std::size_t i = 0; i < image.size(); i += 1024) stream.write(pBytes + i, 1024);
    return stream.flush().good();
}

// Each reads the tables anew.
bool AskEightQuestions()
{
    CSystem system;
    const CStr answers = system.GetProductName() + system.GetROMDate() + system.GetROMVersion() + system.GetRDDate() +
                         system.GetBBDate() + system.GetSystemID() + system.GetPlatformID() + system.GetPALType(0);
    return !answers.IsEmpty();
}

}  // namespace

int AskSmbios(const std::string& folder)
{
    sim::SetCurrentServer(std::make_unique<sim::CServer>(fs::path(folder)));
    return AskEightQuestions() ? EXIT_SUCCESS : EXIT_FAILURE;
}

void BenchSmbios(const std::string& self, const std::string& folder)
{
    const std::string server = MakeServer(folder, "{}");
    const std::string dump = folder + "/smbios";
    sim::SetCurrentServer(std::make_unique<sim::CServer>(fs::path(server)));
    WriteWholeFile(dump, sim::DumpSmbios(sim::CurrentServer()->GetSmbios()));
    Compare("SMBIOS tables", 1, "runs", 20,
            {{"dmidecode, process", [&] { return RunQuietly("dmidecode --from-dump " + dump); }},
             {"eight questions, process", [&] { return RunQuietly("'" + self + "' --smbios " + server); }},
             {"eight questions, in process", AskEightQuestions}});
}

void BenchDiscovery(const std::string& folder)
{
    const std::string server = MakeServer(folder, "{}");
    const std::string package = "'" PACKAGES "/systemrom";
    Compare("Discovery", 1, "runs", 20,
            {{"a bare C++ process", [&] { return RunQuietly(BARE_PROCESS); }},
             {"zalsim and systemrom", [&] {
                  return RunQuietly(ZALSIM " --server " + server + " -- " + package + "/systemrom' /d " + folder +
                                    "/discovery.xml /y " + package + "'");
              }}});
}

void BenchUpload(const std::string& folder)
{
    const std::size_t size = std::size_t{64} << 20;
    const std::string server = MakeServer(folder, R"({"management_processor": {"tamberline":
        {"version": "1.0.0", "flash": {"handler": "Large", "size": "0x08000000", "busy_seconds": 0}}}})");
    const std::vector<std::uint8_t> image = sim::BuildDeviceImage("Large", {1, 1, 0, 0, 0, 0}, size);
    sim::SetCurrentServer(std::make_unique<sim::CServer>(fs::path(server)));
    CChannelInterface channel;
    Compare("Upload of 64 MiB", static_cast<double>(size) / 1e6, "MB", 3,
            {{"a file, written in KiB", [&] { return WriteFile(folder + "/image", image); }},
             {"to the simulated processor", [&] { return Upload(channel, image); }}});
}
