// Reads the members of a description's JSON objects.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace sim
{

using Json = nlohmann::json;

// Parses a text from a file or an option: one JSON value, nested up to 32 deep. Throws std::runtime_error with a
// sentence for the user.
Json ParseJson(const std::string& text);

// The same; "otherwise" for a text that is no JSON.
Json ParseJson(const std::string& text, const Json& otherwise);

// A number as decimal digits, or hexadecimal ones behind "0x"; nothing for any other text.
std::optional<std::uint64_t> ParseNumber(const std::string& text);

// An object that is being read. A member that is missing or null has the value "otherwise". One of another kind than is
// asked for throws std::runtime_error with a sentence for the user.
class CFields
{
  public:
    // What reader, which takes a CFields&, makes of an object that sentences call by that name. A member that reader
    // did not ask for throws too.
    template <typename Reader>
    static auto Read(const Json& object, const std::string& name, Reader reader)
    {
        CFields fields(object, name);
        if constexpr (std::is_void_v<decltype(reader(fields))>) {
            reader(fields);
            fields.RefuseOthers();
        } else {
            auto result = reader(fields);
            fields.RefuseOthers();
            return result;
        }
    }
    CFields(const CFields&) = delete;
    CFields& operator=(const CFields&) = delete;

    std::string Text(const char* key, const char* otherwise = "");
    std::vector<std::string> Texts(const char* key, std::vector<std::string> otherwise = {});
    bool Flag(const char* key, bool otherwise = false);

    // From 0 on; a number, or a text with one, as ParseNumber reads it.
    template <typename Number>
    Number Numeric(const char* key, Number otherwise)
    {
        const Json* pValue = Find(key);
        if (!pValue) return otherwise;
        const std::optional<Number> number = ToNumber<Number>(*pValue);
        if (!number) RefuseValue(key, "a number" + Range<Number>());
        return *number;
    }

    template <typename Number>
    std::vector<Number> Numbers(const char* key)
    {
        std::vector<Number> numbers;
        for (const Json& value : List(key)) {
            const std::optional<Number> number = ToNumber<Number>(value);
            if (!number) RefuseValue(key, "a list of numbers" + Range<Number>());
            numbers.push_back(*number);
        }
        return numbers;
    }

    // What a text stands for. "none" is the one that is missing.
    template <typename Value>
    Value Choice(const char* key, const std::map<std::string, Value>& choices)
    {
        const auto choice = choices.find(Text(key, "none"));
        if (choice != choices.end()) return choice->second;
        std::string names;
        for (const auto& known : choices) names += (names.empty() ? "" : ", ") + known.first;
        RefuseValue(key, "one of " + names);
    }

    // What reader makes of an object, or of an empty one.
    template <typename Reader>
    auto Object(const char* key, Reader reader)
    {
        const Json* pValue = Find(key);
        return Read(pValue ? *pValue : Json::object(), key, reader);
    }

    // What it makes of an object, or nothing.
    template <typename Reader>
    auto Optional(const char* key, Reader reader) -> std::optional<decltype(reader(std::declval<CFields&>()))>
    {
        if (!Find(key)) return std::nullopt;
        return Object(key, reader);
    }

    // What it makes of each object in a list.
    template <typename Reader>
    auto Objects(const char* key, Reader reader)
    {
        std::vector<decltype(reader(*this))> objects;
        for (const Json& value : List(key)) objects.push_back(Read(value, key, reader));
        return objects;
    }

    // The names of all members, for an object that may have any.
    std::vector<std::string> Keys() const;

    // A member of any kind; null where it is missing or null.
    const Json* Find(const char* key);

    // Throws the sentence that a member is not what it has to be, "a text".
    [[noreturn]] void RefuseValue(const char* key, const std::string& expected);

  private:
    CFields(const Json& object, const std::string& name);

    template <typename Number>
    static std::optional<Number> ToNumber(const Json& value)
    {
        std::optional<std::uint64_t> number;
        if (value.is_string()) number = ParseNumber(value.get<std::string>());
        if (value.is_number_unsigned()) number = value.get<std::uint64_t>();
        if (!number || *number > std::uint64_t{std::numeric_limits<Number>::max()}) return std::nullopt;
        return static_cast<Number>(*number);
    }

    template <typename Number>
    static std::string Range()
    {
        return " from 0 to " + std::to_string(std::numeric_limits<Number>::max());
    }

    const Json& List(const char* key);
    void RefuseOthers() const;

    const Json& m_Object;
    const std::string m_Name;
    std::set<std::string> m_Known;  // keys that were asked for
};

}  // namespace sim
