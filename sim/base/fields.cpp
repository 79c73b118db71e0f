#include "sim/base/fields.h"

#include <charconv>
#include <stdexcept>

namespace sim
{

namespace
{

const int MaxDepth = 32;
const std::size_t MaxShown = 200;

// A value as a sentence shows it.
std::string Shown(const Json& value)
{
    const std::string text = value.dump();
    return text.size() <= MaxShown ? text : text.substr(0, MaxShown) + "...";
}

}  // namespace

Json ParseJson(const std::string& text)
{
    const auto refuseDepth = [](int depth, Json::parse_event_t, Json&) {
        if (depth > MaxDepth) throw std::runtime_error("it is nested more than 32 deep");
        return true;
    };
    return Json::parse(text, refuseDepth);
}

Json ParseJson(const std::string& text, const Json& otherwise)
{
    try {
        return ParseJson(text);
    } catch (const Json::parse_error&) {
        return otherwise;
    }
}

std::optional<std::uint64_t> ParseNumber(const std::string& text)
{
    const bool hexadecimal = text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0;
    const char* pEnd = text.data() + text.size();
    std::uint64_t number = 0;
    const auto parsed = std::from_chars(text.data() + (hexadecimal ? 2 : 0), pEnd, number, hexadecimal ? 16 : 10);
    if (parsed.ec != std::errc() || parsed.ptr != pEnd) return std::nullopt;
    return number;
}

CFields::CFields(const Json& object, const std::string& name) : m_Object(object), m_Name(name)
{
    if (!object.is_object()) throw std::runtime_error("\"" + name + "\" is " + Shown(object) + ", not an object");
}

const Json* CFields::Find(const char* key)
{
    m_Known.insert(key);
    const auto entry = m_Object.find(key);
    return entry == m_Object.end() || entry->is_null() ? nullptr : &*entry;
}

std::string CFields::Text(const char* key, const char* otherwise)
{
    const Json* pValue = Find(key);
    if (!pValue) return otherwise;
    if (!pValue->is_string()) RefuseValue(key, "a text");
    return pValue->get<std::string>();
}

std::vector<std::string> CFields::Texts(const char* key, std::vector<std::string> otherwise)
{
    if (!Find(key)) return otherwise;
    std::vector<std::string> texts;
    for (const Json& value : List(key)) {
        if (!value.is_string()) RefuseValue(key, "a list of texts");
        texts.push_back(value.get<std::string>());
    }
    return texts;
}

bool CFields::Flag(const char* key, bool otherwise)
{
    const Json* pValue = Find(key);
    if (!pValue) return otherwise;
    if (!pValue->is_boolean()) RefuseValue(key, "true or false");
    return pValue->get<bool>();
}

const Json& CFields::List(const char* key)
{
    static const Json empty = Json::array();
    const Json* pValue = Find(key);
    if (pValue && !pValue->is_array()) RefuseValue(key, "a list");
    return pValue ? *pValue : empty;
}

std::vector<std::string> CFields::Keys() const
{
    std::vector<std::string> keys;
    for (const auto& entry : m_Object.items()) keys.push_back(entry.key());
    return keys;
}

void CFields::RefuseValue(const char* key, const std::string& expected)
{
    const Json* pValue = Find(key);
    throw std::runtime_error("\"" + std::string(key) + "\" in \"" + m_Name + "\" is " +
                             (pValue ? Shown(*pValue) : "missing") + ", not " + expected);
}

void CFields::RefuseOthers() const
{
    for (const auto& entry : m_Object.items())
        if (m_Known.count(entry.key()) == 0)
            throw std::runtime_error("There is no \"" + entry.key() + "\" in \"" + m_Name + "\"");
}

}  // namespace sim
