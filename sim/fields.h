// Reads the members of a description's JSON objects.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace sim
{

using Json = nlohmann::json;

inline std::string Text(const Json& object, const char* key, const char* otherwise = "")
{
    return object.value(key, std::string(otherwise));
}

// A number, written as one or as a text in any C notation ("0xA5").
template <typename Number>
Number Numeric(const Json& object, const char* key, Number otherwise)
{
    const auto entry = object.find(key);
    if (entry == object.end()) return otherwise;
    const std::uint64_t value =
        entry->is_string() ? std::stoull(entry->get<std::string>(), nullptr, 0) : entry->get<std::uint64_t>();
    if (value > static_cast<std::uint64_t>(std::numeric_limits<Number>::max()))
        throw std::runtime_error(std::string(key) + " is too large");
    return static_cast<Number>(value);
}

template <typename Value>
Value Choice(const Json& object, const char* key, const std::map<std::string, Value>& choices)
{
    const std::string name = Text(object, key, "none");
    const auto choice = choices.find(name);
    if (choice == choices.end()) throw std::runtime_error(std::string(key) + " can't be \"" + name + "\"");
    return choice->second;
}

inline const Json& Object(const Json& object, const char* key)
{
    static const Json empty = Json::object();
    const auto entry = object.find(key);
    return entry == object.end() || entry->is_null() ? empty : *entry;
}

}  // namespace sim
