// zaldeploy, run on a simulated server or on packages whose installers are scripts.
#pragma once

#include <nlohmann/json.hpp>

#include "tests/support.h"

namespace fs = std::filesystem;

using Json = nlohmann::json;

// An installer as a shell script. Its discovery tells the version and the duration that files in the package that it
// was copied from hold.
inline const char* const Script = R"sh(
[ "$3" = /d ] || { install; exit; }
offered=$(cat offered)
action=upgrade
[ "$(cat device)" != "$offered" ] || action=rewrite
[ $(cat device) != 9.0 ] || action=downgrade
cat > "$4" <<END
<qv_rom_discovery version="2.0.1.0">
  <alt_name value="Fan"/>
  <takes_effect value="immediate"/>
  <devices>
    <device>
      <device_id value="F&"1<$(cat id)"/>
      <fw_item>
        <!-- InstallState = 2 -->
        <version value="$offered"/>
        <active_version value="$(cat device)"/>
        <action value="$action"/>
        <duration value="$(cat duration)"/>
      </fw_item>
    </device>
  </devices>
</qv_rom_discovery>
END
)sh";

class Zaldeploy : public testing::Test
{
  protected:
    void UseRack(const std::string& members = "{}") { m_Server.Write("server.json", RackServer(members)); }

    int Run(const std::string& arguments) { return RunCommand(ZALDEPLOY " " + arguments, m_Output); }
    int RunOnServer(const std::string& arguments)
    {
        return Run("--server " + m_Server.Path().string() + " " + arguments);
    }
    int RunHere(const std::string& arguments) { return RunOnHost(ZALDEPLOY " " + arguments, m_Output); }
    int RunScripts(const std::string& command)
    {
        return RunHere(command + " --allow-unsigned --state " + m_Server.Path().string() + " " +
                       m_Packages.Path().string() + " </dev/null");
    }

    // An installer that leaves another process behind, which holds a lock until it is ended.
    std::string LeavesAnother() const { return "#!/bin/sh\nflock " + m_Server.Path().string() + "/left sleep 20 &\n"; }
    bool IsNothingLeft()
    {
        std::string output;
        return RunCommand("flock -w 10 " + m_Server.Path().string() + "/left true", output) == 0;
    }
    bool Says(const std::string& text) const { return m_Output.find(text) != std::string::npos; }

    // Adds a package whose installer is that script.
    fs::path Add(const std::string& name, const std::string& script, const std::string& offered = "2.0")
    {
        const fs::path folder = m_Packages.Path() / name;
        fs::create_directory(folder);
        m_Packages.Write(name + "/device", "1.0\n");
        m_Packages.Write(name + "/duration", "0\n");
        m_Packages.Write(name + "/offered", offered + "\n");
        m_Packages.Write(name + "/id", name + "\n");
        fs::permissions(m_Packages.Write(name + "/" + name, script), fs::perms::owner_all);
        return folder;
    }

    // Adds one whose discovery is sound, and whose installation does that.
    fs::path AddSound(const std::string& name, const std::string& install, const std::string& offered = "2.0")
    {
        const std::string start = "#!/bin/sh\ncd '" + (m_Packages.Path() / name).string() + "'\n";
        return Add(name, start + "install() { " + install + "\n}\n" + Script, offered);
    }

    // What the history tells of an installation, the newest first, as the database's own tool reads it.
    std::string Rows(const std::string& columns)
    {
        std::string rows;
        RunCommand("sqlite3 $(find " + m_Server.Path().string() + " -name history.db) 'SELECT " + columns +
                       " FROM history ORDER BY id DESC'",
                   rows);
        return rows;
    }

    // What stands behind the warning that unsigned packages run.
    Json Document() const { return Json::parse(m_Output.substr(m_Output.find('{'))); }
    Json Offers() const { return Document().at("packages"); }

    // The output is what the schema says that scripts may rely on.
    void ExpectSchema(const char* name)
    {
        EXPECT_EQ(name, Json::parse(m_Output).at("schema").at("name"));
        const std::string file = m_Packages.Write("output.json", m_Output);
        std::string problem;
        EXPECT_EQ(0, RunCommand("/usr/bin/python3 -m jsonschema -i " + file + " " SCHEMA, problem)) << problem;
    }

    CTestFolder m_Packages;
    CTestFolder m_Server;
    std::string m_Output;
};
