#include "tests/support.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <new>
#include <nlohmann/json.hpp>
#include <optional>

#include "debug.h"
#include "sim/base/clock.h"
#include "sim/entry/exit.h"
#include "sim/server.h"
#include "support/files.h"
#include "util.h"
#include "zalftbl.h"

namespace fs = std::filesystem;

CStr g_InstallLocalDir;

namespace
{

int g_AllocationsToFailure = 0;

}  // namespace

void FailAllocation(int number)
{
    g_AllocationsToFailure = number;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return g_AllocationsToFailure > 0 && --g_AllocationsToFailure == 0 ? nullptr : ::operator new(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return g_AllocationsToFailure > 0 && --g_AllocationsToFailure == 0 ? nullptr : ::operator new[](size);
}

std::string CTestFolder::Write(const std::string& name, const std::string& contents) const
{
    WriteWholeFile(Path() / name, contents);
    return (Path() / name).string();
}

fs::path RunFolder()
{
    return std::getenv("FLASHTEST_FOLDER");
}

fs::path ServerFolder()
{
    return RunFolder() / "server";
}

std::string ReadFile(const fs::path& file)
{
    return ReadFileIfThere(file).value_or("");
}

std::string Repeat(int count, const std::string& text)
{
    std::string all;
    while (count-- > 0) all += text;
    return all;
}

CLogCapture::CLogCapture()
{
    _DebugPrintf("%s", "");  // the log's header is out after this
    m_Before = static_cast<std::size_t>(fs::file_size(std::getenv("QVFLASHLOG")));
}

std::string CLogCapture::Text() const
{
    std::ifstream file(std::getenv("QVFLASHLOG"), std::ios::binary);
    file.seekg(static_cast<std::streamoff>(m_Before));
    return std::string(std::istreambuf_iterator<char>(file), {});
}

CTranscript::CTranscript(const char* pszName) : m_File(fs::path(TRACES) / "library" / (std::string(pszName) + ".txt"))
{
    sim::CClock& clock = sim::CClock::Instance();
    clock.Wait(1500 * sim::Millisecond - clock.Now() % sim::Second);
    m_Time = clock.Now();
}

CTranscript::~CTranscript()
{
    for (const auto& [text, name] : m_Renamed)
        for (std::size_t at = 0; (at = m_Text.find(text, at)) != std::string::npos; at += name.size())
            m_Text.replace(at, text.size(), name);
    if (m_Text.empty()) return;
    if (std::getenv("FLASHTEST_RECORD"))
        WriteWholeFile(m_File, m_Text);
    else
        EXPECT_EQ(ReadFile(m_File), m_Text) << "in " << m_File;
}

void CTranscript::Add(const std::string& line)
{
    m_Text += line + "\n";
    const std::int64_t now = sim::CClock::Instance().Now();
    if (const std::int64_t milliseconds = (now - m_Time) / sim::Millisecond)
        m_Text += "    after " + std::to_string(milliseconds) + " ms\n";
    m_Time = now;
    const std::string log = m_Log.Text();
    std::istringstream added(log.substr(m_Logged));
    std::optional<std::string> before;
    int repeats = 0;
    for (std::string logged; m_ShowLog && std::getline(added, logged); before = logged) {
        if (added.eof()) logged += " (the line goes on)";
        const bool isRepeated = logged == before;
        if (!isRepeated && repeats > 0) m_Text += "    (" + std::to_string(repeats) + " times more)\n";
        repeats = isRepeated ? repeats + 1 : 0;
        if (!isRepeated) m_Text += "    " + logged + "\n";
    }
    if (repeats > 0) m_Text += "    (" + std::to_string(repeats) + " times more)\n";
    m_Logged = log.size();
}

void CTranscript::Skip()
{
    m_Logged = m_Log.Text().size();
    m_Time = sim::CClock::Instance().Now();
}

std::string HexDigits(const std::string& bytes)
{
    std::string digits;
    const std::size_t last = bytes.find_last_not_of('\0');
    for (const char byte : bytes.substr(0, last == std::string::npos ? 1 : last + 1))
        digits += {"0123456789ABCDEF"[byte >> 4 & 15], "0123456789ABCDEF"[byte & 15]};
    return digits;
}

namespace
{

void StartServer()
{
    if (cruFd >= 0) close(cruFd);
    cruFd = -1;
    sim::SetCurrentServer(std::make_unique<sim::CServer>(ServerFolder()));
}

}  // namespace

void UseServer(const std::string& json)
{
    sim::SetCurrentServer(nullptr);
    fs::remove_all(ServerFolder());
    fs::create_directory(ServerFolder());
    WriteWholeFile(ServerFolder() / "server.json", json);
    StartServer();
}

void RestartServer()
{
    sim::RestartServer(ServerFolder());
    StartServer();
}

std::string RackServer(const std::string& members)
{
    nlohmann::json server = nlohmann::json::parse(ReadFile(fs::path(SERVERS) / "rack" / "server.json"));
    server.merge_patch(nlohmann::json::parse(members));
    return server.dump();
}

int RunCommand(const std::string& command, std::string& output)
{
    output.clear();
    FILE* pPipe = popen((command + " 2>&1").c_str(), "r");
    char szPart[4096];
    while (std::size_t length = std::fread(szPart, 1, sizeof szPart, pPipe)) output.append(szPart, length);
    const int status = pclose(pPipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int RunOnHost(const std::string& command, std::string& output)
{
    for (;;) {
        const int status = RunCommand(command, output);
        if (status != 8) return status;
    }
}

namespace
{

// A test, too, uses a server as a real one may be used.
class CConductListener : public testing::EmptyTestEventListener
{
    void OnTestEnd(const testing::TestInfo&) override
    {
        for (const std::string& complaint : sim::TakeComplaints()) ADD_FAILURE() << complaint;
    }
};

}  // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    testing::UnitTest::GetInstance()->listeners().Append(new CConductListener);
    std::optional<CTestFolder> folder;
    if (!std::getenv("FLASHTEST_FOLDER")) {
        folder.emplace();
        setenv("FLASHTEST_FOLDER", folder->Path().c_str(), 1);
    }
    setenv("QVFLASHLOG", (RunFolder() / "flash.debug.log").c_str(), 1);
    setenv("TZ", "TEST-05:30", 1);  // local time is another one than that of the clock
    return RUN_ALL_TESTS();
}
