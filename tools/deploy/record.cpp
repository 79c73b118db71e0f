#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "sim/base/fields.h"
#include "support/files.h"
#include "tools/deploy/commands.h"
#include "tools/deploy/identity.h"
#include "tools/deploy/jsonoutput.h"
#include "tools/deploy/reach.h"
#include "tools/deploy/recorder.h"
#include "tools/deploy/runlog.h"
#include "tools/deploy/screen.h"
#include "tools/deploy/table.h"

namespace fs = std::filesystem;

namespace
{

using Json = nlohmann::ordered_json;

const unsigned MaxBus = 0xFF;
const unsigned MaxAddress = 0x7F;

// "3:0x30".
I2CPlace ReadPlace(const std::string& text)
{
    const std::size_t colon = text.find(':');
    const auto bus = sim::ParseNumber(text.substr(0, colon));
    const auto address = sim::ParseNumber(colon == std::string::npos ? "" : text.substr(colon + 1));
    if (!bus || !address || *bus > MaxBus || *address > MaxAddress)
        throw std::runtime_error("--power-controller takes an I2C bus and an address, as 3:0x30, not " + text);
    return {static_cast<int>(*bus), static_cast<int>(*address)};
}

// Nothing that is there is written over.
void MakeFolder(const fs::path& folder)
{
    if (mkdir(folder.c_str(), 0777) != 0 && !(errno == EEXIST && fs::is_directory(folder) && fs::is_empty(folder)))
        throw std::runtime_error("can't record into " + folder.string() + ": " +
                                 (errno == EEXIST ? "it is there, and not an empty folder" : std::strerror(errno)));
}

Json PartsJson(const std::vector<RecordedPart>& parts)
{
    Json json = Json::array();
    for (const RecordedPart& part : parts)
        json.push_back({{"part", part.Name}, {"found", TextOrNull(part.Found)}, {"problem", TextOrNull(part.Problem)}});
    return json;
}

std::string PartsText(const CScreen& screen, const std::vector<RecordedPart>& parts)
{
    std::vector<Row> rows;
    rows.reserve(parts.size());
    for (const RecordedPart& part : parts)
        rows.push_back({{part.Name, part.Problem.empty() ? part.Found : "not recorded"},
                        part.Problem,
                        part.Problem.empty() ? Colour_None : Colour_Yellow});
    return TableText(screen, {{"part"}, {"recorded"}}, rows);
}

}  // namespace

int RunRecord(const DeployOptions& options, char** argv)
{
    if (!ReachServer(options, argv)) return DeployStatus_CouldNotRun;
    RecordOptions recordOptions;
    recordOptions.KeepSerials = options.KeepSerials;
    if (!options.PowerController.empty()) recordOptions.PowerController = ReadPlace(options.PowerController);
    MakeFolder(options.Recording);
    CScreen screen(options);
    KeepLogIfNamed(options);

    const Recording recording = RecordServer(recordOptions);
    DeployStatus status = DeployStatus_Well;
    for (const RecordedPart& part : recording.Parts)
        if (!part.Problem.empty()) status = DeployStatus_Unknown;
    Json json = JsonHead("zaldeploy.record", ReadOwnIdentity());
    if (!options.KeepSerials) json["host"] = "";
    if (!options.KeepSerials) json["serial"] = nullptr;
    json["parts"] = PartsJson(recording.Parts);
    json["status"] = status;

    const fs::path folder = options.Recording;
    for (const auto& [name, bytes] : recording.Files) WriteWholeFile(folder / name, bytes);
    WriteWholeFile(folder / "record.json", json.dump(2, ' ', true) + "\n");
    WriteWholeFile(folder / "server.json", recording.Description.dump(2, ' ', true) + "\n");  // it is a server now
    screen.Print(PartsText(screen, recording.Parts));
    if (options.Json) PrintJson(json);
    return status;
}
