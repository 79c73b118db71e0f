#include "tests/installers/installer.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "sim/images/crc.h"

namespace fs = std::filesystem;

CInstallerTest::CInstallerTest(const std::string& component) : m_Component(component)
{
    for (const auto& entry : fs::directory_iterator(fs::path(PACKAGES) / component))
        if (entry.path().filename() != component) fs::copy(entry.path(), m_Package.Path());
}

int CInstallerTest::Zalsim(const std::string& arguments)
{
    const std::string folder = m_Server.Path().string();
    return RunCommand("FLASHLIB_REPORT=9 " + std::string(ZALSIM) + " --server " + folder + " " + arguments + " 9>" +
                          folder + "/report",
                      m_Output);
}

std::string CInstallerTest::Left() const
{
    std::istringstream report(ReadFile(m_Server.Path() / "report"));
    nlohmann::json last;
    for (std::string line; std::getline(report, line);) last = nlohmann::json::parse(line);
    return last.value("left", "nothing");
}

int CInstallerTest::Run(const std::string& server, const std::string& switches, const std::string& options)
{
    m_Server.Write("server.json", server);
    const fs::path installer = fs::path(PACKAGES) / m_Component / m_Component;
    return Zalsim(options + " -- '" + installer.string() + "' /y " + m_Package.Path().string() + " " + switches);
}

testing::AssertionResult CInstallerTest::Ends(int status, const std::string& text, const std::string& server,
                                              const std::string& switches, const std::string& options)
{
    const int ended = Run(server, switches, options);
    if (ended == status) return Says(text);
    return testing::AssertionFailure() << "It ended with " << ended << ":\n" << m_Output;
}

testing::AssertionResult CInstallerTest::Discovers(const std::string& server, const std::string& text)
{
    const fs::path xml = m_Server.Path() / "discovery.xml";
    const testing::AssertionResult ended = Ends(0, "Discovery complete.", server, "/d " + xml.string());
    if (!ended || ReadFile(xml).find(text) != std::string::npos) return ended;
    return testing::AssertionFailure() << ReadFile(xml);
}

testing::AssertionResult CInstallerTest::Says(const std::string& text) const
{
    return testing::AssertionResult(m_Output.find(text) != std::string::npos) << m_Output;
}

void CInstallerTest::Edit(const std::string& file, const std::string& find, const std::string& replacement)
{
    std::string text = ReadFile(m_Package.Path() / file);
    const std::size_t position = text.find(find);
    ASSERT_NE(std::string::npos, position) << find;
    m_Package.Write(file, text.replace(position, find.size(), replacement));
}

void CInstallerTest::Restore(const std::string& file)
{
    fs::copy(fs::path(PACKAGES) / m_Component / file, m_Package.Path(), fs::copy_options::overwrite_existing);
}

void CInstallerTest::UseImage(const std::string& file, const std::string& image)
{
    m_Package.Write(file, image);
    char szCrc[9];
    std::snprintf(szCrc, sizeof szCrc, "%08X", sim::Crc32(image.data(), image.size()));
    const std::string settings = ReadFile(m_Package.Path() / "settings.ini");
    m_Package.Write("settings.ini", settings.substr(0, settings.find("CRC32")) + "CRC32 = " + szCrc);
}
