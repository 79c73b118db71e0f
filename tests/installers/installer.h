// Runs the real installers of the sample components on simulated servers.
#pragma once

#include "tests/support.h"

// A copy of a sample component's package, and a server to run its installer on.
class CInstallerTest : public testing::Test
{
  protected:
    explicit CInstallerTest(const std::string& component);

    // Runs the installer on a server with that server.json; its exit status, with what it prints in m_Output.
    int Run(const std::string& server, const std::string& switches = "", const std::string& options = "");

    // The same; true when it ends with that status and prints the text.
    testing::AssertionResult Ends(int status, const std::string& text, const std::string& server = RackServer(),
                                  const std::string& switches = "", const std::string& options = "");

    // The same with discovery; true when the XML has the text.
    testing::AssertionResult Discovers(const std::string& server, const std::string& text);

    int Zalsim(const std::string& arguments);
    testing::AssertionResult Says(const std::string& text) const;

    // What the last run has reported that it has left in the device.
    std::string Left() const;

    // Replaces a text in a file of the package, puts the file back.
    void Edit(const std::string& file, const std::string& find, const std::string& replacement);
    void Restore(const std::string& file);

    // Puts an image into the package, and its checksum behind "CRC32 = " at the end of the settings.
    void UseImage(const std::string& file, const std::string& image);

    std::string m_Component;
    CTestFolder m_Package;
    CTestFolder m_Server;
    std::string m_Output;
};
