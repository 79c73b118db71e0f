#include <filesystem>

#include "tests/support.h"

namespace fs = std::filesystem;

namespace
{

class Zalfaults : public testing::Test
{
  protected:
    Zalfaults()
    {
        fs::create_directory(m_Folder.Path() / "liar");
        fs::copy(LIAR, m_Folder.Path() / "liar");
        fs::copy(PACKAGES "/systemrom/libflash.so.1", m_Folder.Path() / "liar");
    }

    int Run(const std::string& options)
    {
        return RunCommand("cd " + m_Folder.Path().string() + " && " ZALFAULTS " --server '" SERVERS "/rack' " +
                              options + " liar 2>&1",
                          m_Output);
    }

    CTestFolder m_Folder;
    std::string m_Output;
};

}  // namespace

TEST_F(Zalfaults, FindsNothingAmissInAnHonestInstaller)
{
    EXPECT_EQ(0, Run("--pairs 5")) << m_Output;
    EXPECT_NE(std::string::npos, m_Output.find("; 0 violations")) << m_Output;
}

TEST_F(Zalfaults, FindsEachLieByTheRuleThatItBreaks)
{
    const std::string fails =
        "--fault 'processor.error={\"command\": \"I2C_TRANSACTION\", \"exchange\": 4}' "
        "--fault 'processor.lost={\"command\": \"I2C_TRANSACTION\", \"exchange\": 5}'";
    for (const char* rule : {"ends", "reports", "status", "left", "current", "again", "sentence", "log", "log-told",
                             "writes", "gives-back", "litter", "lock"}) {
        m_Folder.Write("liar/lie", rule);
        EXPECT_EQ(1, Run(rule == std::string("log-told") ? "--fault ipmi.delay_ms=10001" : fails)) << rule << m_Output;
        EXPECT_NE(std::string::npos, m_Output.find("\n" + std::string(rule) + ": ")) << rule << m_Output;
    }
}

TEST_F(Zalfaults, RunsNothingThatWouldSeeTheHost)
{
    m_Folder.Write("liar/liar", "#!/bin/sh\n");
    fs::permissions(m_Folder.Path() / "liar/liar", fs::perms::owner_all);
    EXPECT_EQ(2, Run(""));
    EXPECT_NE(std::string::npos, m_Output.find("is a script")) << m_Output;
    fs::remove(m_Folder.Path() / "liar/liar");
    EXPECT_EQ(2, Run(""));
    EXPECT_NE(std::string::npos, m_Output.find("liar/liar: No such file or directory")) << m_Output;
}
