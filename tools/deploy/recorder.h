// Takes down what a simulated server needs to be like this one, as far as that can be read without changing anything.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

struct RecordedPart
{
    std::string Name;
    std::string Found;    // what was recorded of it; empty: nothing
    std::string Problem;  // why it was not, and what that means; empty: it was, or the server has none
};

struct Recording
{
    nlohmann::ordered_json Description;        // server.json
    std::map<std::string, std::string> Files;  // beside it: name and bytes
    std::vector<RecordedPart> Parts;
};

// Where an I2C device is.
struct I2CPlace
{
    int Bus;
    int Address;
};

struct RecordOptions
{
    bool KeepSerials = false;
    std::optional<I2CPlace> PowerController;  // asked for its registers there, where the server has one
};

// Reads it from the server that this process runs on.
Recording RecordServer(const RecordOptions& options);
