#include "tools/deploy/report.h"

#include <nlohmann/json.hpp>

#include "support/printable.h"

namespace
{

using Json = nlohmann::json;

// A member of an object; empty, 0 where there is none of that kind, or it is too long.
std::string Text(const Json& object, const char* name)
{
    const auto member = object.find(name);
    const std::string text = member != object.end() && member->is_string() ? member->get<std::string>() : "";
    return text.size() <= MaxToldLength ? Printable(text) : "";
}

long long Number(const Json& object, const char* name)
{
    const auto member = object.find(name);
    return member != object.end() && member->is_number_integer() ? member->get<long long>() : 0;
}

}  // namespace

void CReport::Read(const std::string& line)
{
    const Json object = Json::parse(line, nullptr, false);
    if (!object.is_object()) return;
    const std::string kind = Text(object, "report");
    if (kind == "properties") {
        m_Properties.Name = Text(object, "name");
        m_Properties.Current = Text(object, "current");
        m_Properties.Offered = Text(object, "offered");
        m_Properties.State = static_cast<int>(Number(object, "state"));
        m_Properties.Reason = Text(object, "message");
        m_Properties.WayBack = object.value("way_back", Json()) == true;
        m_bGiven = true;
    }
    if (kind == "progress") {
        const Progress progress = {Text(object, "what"), Number(object, "done"), Number(object, "total")};
        if (progress.Done >= 0 && progress.Done <= progress.Total && progress.Total > 0) m_Progress = progress;
    }
    if (kind == "backup") m_Backup = Text(object, "file");
    if (kind == "result")
        m_Result = {Text(object, "message"), LeftFromText(Text(object, "left")).value_or(Left_Unknown)};
}
