#include "tools/deploy/discoveryfile.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>

#include "support/printable.h"

namespace fs = std::filesystem;

namespace
{

const std::uintmax_t MaxSize = 1 << 20;  // bytes; a document has about a thousand
const int MaxDuration = 86400;           // seconds

const std::string StateStart = "<!-- InstallState = ";
const std::string NoName = "(Name)";  // of a component that has read no description

// The values of a document, by the element they stand in and their own name.
struct Document
{
    std::map<std::string, std::string> Root;
    std::map<std::string, std::string> Device;
    std::map<std::string, std::string> Item;
    bool IsDiscovery = false;  // begins as one
    bool IsWhole = false;      // ends as one
    bool IsTooLong = false;    // one of the values is
};

// Reads `<name value="..."/>`; the value runs to the end of the line. False for what is no such line.
bool ReadValue(const std::string& line, std::string& name, std::string& value)
{
    static const std::string open = " value=\"";
    static const std::string close = "\"/>";
    const std::size_t start = line.find(open);
    if (line.empty() || line[0] != '<' || start == std::string::npos) return false;
    const std::size_t from = start + open.size();
    if (line.size() < from + close.size() || line.compare(line.size() - close.size(), close.size(), close) != 0)
        return false;
    name = line.substr(1, start - 1);
    value = Printable(line.substr(from, line.size() - close.size() - from));
    return true;
}

Document ReadDocument(std::istream& file)
{
    Document document;
    std::map<std::string, std::string>* pElement = &document.Root;
    std::string line;
    std::string name;
    std::string value;
    while (std::getline(file, line) && !document.IsWhole) {
        line.erase(0, line.find_first_not_of(" \t"));
        line.erase(line.find_last_not_of(" \t\r") + 1);
        if (line.rfind("<qv_rom_discovery", 0) == 0) document.IsDiscovery = true;
        if (line == "<device>") pElement = &document.Device;
        if (line == "<fw_item>") pElement = &document.Item;
        if (line == "</fw_item>") pElement = &document.Device;
        if (line == "</device>") pElement = &document.Root;
        if (line == "</qv_rom_discovery>") document.IsWhole = true;
        if (line.rfind(StateStart, 0) == 0) pElement->emplace("state", line.substr(StateStart.size()));
        if (!ReadValue(line, name, value)) continue;
        if (value.size() > MaxToldLength) document.IsTooLong = true;
        pElement->emplace(name, value);
    }
    return document;
}

}  // namespace

std::string ReadDiscoveryFile(const fs::path& file, Discovery& discovery)
{
    std::error_code error;
    if (!fs::exists(file, error)) return "The installer wrote no discovery file.";
    if (!fs::is_regular_file(file, error) || fs::file_size(file, error) > MaxSize)
        return "The installer wrote rubbish for a discovery file.";
    std::ifstream stream(file);
    Document document = ReadDocument(stream);
    if (!document.IsDiscovery) return "The installer's discovery file is none.";
    if (!document.IsWhole) return "The installer's discovery file breaks off.";
    if (document.IsTooLong)
        return "The installer's discovery file has a text of more than " + std::to_string(MaxToldLength) + " bytes.";
    if (document.Item.empty()) return "The installer's discovery file tells of no device.";

    discovery.Word = ActionFromText(document.Item["action"]);
    if (!discovery.Word)
        return "The installer's discovery file tells an action that is none: \"" + document.Item["action"] + "\".";
    discovery.Name = document.Root["alt_name"] == NoName ? "" : document.Root["alt_name"];
    discovery.Device = document.Device["device_id"];
    discovery.ProductId = document.Device["product_id"];
    discovery.Current = document.Item["active_version"];
    discovery.Offered = document.Item["version"];
    discovery.TakesEffect = document.Root["takes_effect"];
    discovery.Duration = std::clamp(std::atoi(document.Item["duration"].c_str()), 0, MaxDuration);
    discovery.State = std::atoi(document.Item["state"].c_str());
    if (!document.Item["message"].empty()) discovery.Reason = document.Item["message"];
    return "";
}
