#include <cstring>
#include <ctime>
#include <tuple>

#include "sim/server.h"
#include "tests/support.h"
#include "zalph.h"

namespace
{

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
    CTranscript trace("ipmi");
    for (const char* pszFaults :
         {"{}", R"({"missing": true})", R"({"send_fails": true})", R"({"silent": true})", R"({"foreign": true})",
          R"({"event": true})", R"({"delay_ms": 10001})", R"({"delay_ms": 9999})", R"({"interruptions": 3})",
          R"({"poll_fails": true})", R"({"padding": 495})", R"({"padding": 496})", R"({"padding": 497})",
          R"({"empty_answer": true})", R"({"completion_code": 193})"}) {
        UseServer(Server(pszFaults));
        // The second buffer has room for one byte, the third has none. Of the last command count the low
        // bytes, which the controller does not know.
        for (const auto& [netFunction, command, capacity] :
             {std::tuple(6, 1, 20), {6, 1, 1}, {6, 1, 0}, {0x130, 0x199, 20}}) {
            std::string response(520, '\xEE');
            int length = -1;
            int completion = -1;
            const int result = CSystem().IpmiCommand(netFunction, command, nullptr, 0, response.data(), capacity,
                                                     &length, &completion);
            const std::size_t written = response.find_last_not_of('\xEE') + 1;
            trace(pszFaults, " ", netFunction, " ", command, ": IpmiCommand ", result, ", completion code ", completion,
                  ", ", length, " bytes, ", written, " written: ", HexDigits(response.substr(0, written)));
        }
    }
    const CTestFolder folder;
    sim::RunOptions options;
    options.Capture = folder.Path() / "run.pcapng";
    UseServer(RackServer());
    sim::SetCurrentServer(std::make_unique<sim::CServer>(ServerFolder(), options));
    std::string response(20, '\0');
    trace("without places: IpmiCommand ",
          CSystem().IpmiCommand(6, 1, nullptr, 0, response.data(), 20, nullptr, nullptr));
    trace("written: ", HexDigits(response));
    // Network function and LUN, the command; outbound, with the message id.
    EXPECT_NE(std::string::npos,
              ReadFile(options.Capture).find(std::string("\x18\1\0\0\0\2\0\4\0\2\0\0\0\5\0\x8\0\x2A\0\0", 20)));
}

TEST(EventLog, KeepsWhatHostsLog)
{
    UseServer(RackServer());
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
