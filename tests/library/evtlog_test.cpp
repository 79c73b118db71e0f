#include <cstring>
#include <ctime>

#include "sim/server.h"
#include "tests/support.h"
#include "zalph.h"

namespace
{

const int NetFunction_App = 6;
const int Command_GetDeviceId = 1;

std::string Server(const std::string& ipmiFaults)
{
    return RackServer("{\"faults\": {\"ipmi\": " + ipmiFaults + "}}");
}

// The entries: number, class, code, severity, text.
std::vector<std::string> Log()
{
    std::vector<std::string> log;
    for (const sim::EventLogEntry& entry : sim::CurrentServer()->GetBmc().GetLog()) {
        CStr numbers;
        numbers.Format("%u %X %d %d ", entry.Number, entry.Class, entry.Code, entry.Severity);
        log.push_back(numbers.GetAnsiString() + entry.Text);
    }
    return log;
}

}  // namespace

TEST(Ipmi, ExchangesOneCommand)
{
    UseServer(RackServer());
    CSystem system;
    BYTE response[20];
    std::memset(response, 0xEE, sizeof response);
    int length = -1;
    int completion = -1;
    EXPECT_EQ(1, system.IpmiCommand(NetFunction_App, Command_GetDeviceId, nullptr, 0, response, sizeof response,
                                    &length, &completion));
    EXPECT_EQ(0, completion);
    EXPECT_EQ(15, length);
    EXPECT_EQ(0x02, response[4]);   // IPMI 2.0
    EXPECT_EQ(0xEE, response[15]);  // behind the response

    // A response buffer that is too small, and nobody who asks for length and code.
    std::memset(response, 0xEE, sizeof response);
    EXPECT_EQ(1, system.IpmiCommand(NetFunction_App, Command_GetDeviceId, nullptr, 0, response, 3, nullptr, nullptr));
    EXPECT_EQ(0xEE, response[3]);
    // None at all, for the completion code alone.
    EXPECT_EQ(1,
              system.IpmiCommand(NetFunction_App, Command_GetDeviceId, nullptr, 0, nullptr, 0, &length, &completion));
    EXPECT_EQ(15, length);

    // What the controller does not know is answered by a completion code alone; only the low bytes count.
    EXPECT_EQ(1, system.IpmiCommand(0x130, 0x199, nullptr, 0, response, sizeof response, &length, &completion));
    EXPECT_EQ(0xC1, completion);
    EXPECT_EQ(0, length);
    EXPECT_NE(std::string::npos, ReadFile(ServerFolder() / "journal.log").find("netfn=0x30 command=0x99"));
}

TEST(Ipmi, FailsWithoutAnAnswerOfItsOwn)
{
    const std::pair<const char*, int> cases[] = {
        {R"({"missing": true})", 0},    {R"({"send_fails": true})", 0},   {R"({"silent": true})", 0},
        {R"({"foreign": true})", 0},    {R"({"event": true})", 0},        {R"({"delay_ms": 10001})", 0},
        {R"({"padding": 497})", 0},     {R"({"empty_answer": true})", 0}, {R"({"delay_ms": 9999})", 1},
        {R"({"interruptions": 3})", 1},
    };
    for (const auto& c : cases) {
        UseServer(Server(c.first));
        BYTE response[20];
        int length = -1;
        int completion = -1;
        EXPECT_EQ(c.second, CSystem().IpmiCommand(NetFunction_App, Command_GetDeviceId, nullptr, 0, response,
                                                  sizeof response, &length, &completion))
            << c.first;
        EXPECT_EQ(c.second ? 15 : -1, length) << c.first;
    }
}

TEST(EventLog, KeepsWhatHostsLog)
{
    UseServer(RackServer());
    setenv("TZ", "TEST-05:30", 1);
    tzset();
    CSystem system;
    const std::time_t now = std::time(nullptr);
    char szTime[40];
    std::strftime(szTime, sizeof szTime, "%Y-%m-%d %H:%M", std::localtime(&now));
    EXPECT_EQ(TRUE, system.LogFlashEventToVRL("ROM flashed"));
    EXPECT_EQ(TRUE, system.LogMaintenanceNoteToVRL(std::string(300, 'x').c_str()));
    EXPECT_EQ(TRUE, system.LogFlashEventToVRL(""));
    RestartServer();
    const std::vector<std::string> expected = {"1 20 1 2 ROM flashed", "2 21 2 2 " + std::string(227, 'x'),
                                               "3 20 1 2 "};
    EXPECT_EQ(expected, Log());
    EXPECT_EQ(szTime, sim::CurrentServer()->GetBmc().GetLog()[0].Time);

    const std::string raw = ReadFile(ServerFolder() / "vrl.bin");
    EXPECT_EQ(40u + 256 + 29, raw.size());
    const _evtLogHdr* pHeader = reinterpret_cast<const _evtLogHdr*>(raw.data());
    EXPECT_EQ(40, pHeader->wEvtLength);
    EXPECT_EQ(1, pHeader->bHdrRev);
    EXPECT_EQ(1u, pHeader->dwCount);
    EXPECT_EQ(0, std::memcmp(&pHeader->InitTime, &pHeader->UpdateTime, sizeof pHeader->InitTime));
}

TEST(EventLog, TellsThatTheControllerRefused)
{
    for (const char* faults : {R"({"completion_code": 193})", R"({"status": 1})", R"({"missing": true})"}) {
        UseServer(Server(faults));
        EXPECT_EQ(FALSE, CSystem().LogFlashEventToVRL("text")) << faults;
        EXPECT_TRUE(Log().empty());
    }
}

TEST(EventLogDeathTest, EndsTheProcessForAnEntryThatIsTooLong)
{
    UseServer(RackServer());
    std::vector<BYTE> bytes(300);
    _evtLogEntry* pEntry = reinterpret_cast<_evtLogEntry*>(bytes.data());
    pEntry->wEvtLength = 257;
    EXPECT_DEATH(CSystem().LogEventToVRL(pEntry), "does not fit the 256-byte buffer of an event log entry");
}
