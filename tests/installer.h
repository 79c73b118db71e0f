// Runs the real installers of the sample components on simulated servers.
#pragma once

#include "support.h"

// A copy of a sample component's package, and a server to run its installer on.
class CInstallerTest : public testing::Test
{
  protected:
    explicit CInstallerTest(const std::string& component);

    // Runs the installer on a server with that server.json; its exit status, with what it prints in m_Output.
    int Run(const std::string& server, const std::string& switches = "", const std::string& options = "");

    // The same with discovery; true when the XML has the text.
    bool Discovers(const std::string& server, const std::string& text);

    int Zalsim(const std::string& arguments);
    bool Says(const std::string& text) const { return m_Output.find(text) != std::string::npos; }

    // Replaces a text in a file of the package, puts the file back.
    void Edit(const std::string& file, const std::string& find, const std::string& replacement);
    void Restore(const std::string& file);

    std::string m_Component;
    CTempFolder m_Package;
    CTempFolder m_Server;
    std::string m_Output;
};
