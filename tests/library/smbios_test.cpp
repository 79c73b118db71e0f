#include "zalph/smbios.h"

#include <cstring>
#include <ctime>
#include <memory>

#include "sim/server.h"
#include "tests/support.h"
#include "zalph/system.h"

namespace
{

// Puts the process on a server whose table is these bytes.
void UseTable(const std::string& bytes, WORD structures, const std::string& fault = "none")
{
    CTestFolder folder;
    SMBIOSEntryPoint entry = {};
    std::memcpy(entry.sAnchorString, "_SM_", 4);
    std::memcpy(entry.sIntermediateAS, "_DMI_", 5);
    entry.byEPSLength = sizeof entry;
    entry.wSTLength = static_cast<WORD>(bytes.size());
    entry.wNumStructures = structures;
    folder.Write("dump", sim::DumpSmbios({entry, {bytes.begin(), bytes.end()}}));
    UseServer(RackServer("{\"smbios_dump\": \"" + (folder.Path() / "dump").string() +
                         "\", \"faults\": {\"smbios\": \"" + fault + "\"}}"));
}

std::string Bytes(std::initializer_list<int> values)
{
    return std::string(values.begin(), values.end());
}

// Writes what the tables of the server say, and what the system services say that ask them.
void Ask(CTranscript& trace, const std::string& server)
{
    CSMBIOS smbios;
    CSystem system;
    const auto both = [&](const std::string& name, const auto& ask) {
        trace(name, " \"", ask(smbios), "\"");
        trace("  of the system \"", ask(system), "\"");
    };
    trace(server, ": table ", smbios.Exists());
    both("GetProductName", [](auto& asked) { return asked.GetProductName(); });
    both("GetROMDate", [](auto& asked) { return asked.GetROMDate(); });
    both("GetROMVersion", [](auto& asked) { return asked.GetROMVersion(); });
    both("GetRDDate", [](auto& asked) { return asked.GetRDDate(); });
    both("GetBBDate", [](auto& asked) { return asked.GetBBDate(); });
    both("GetOEMROMName", [](auto& asked) { return asked.GetOEMROMName(); });
    both("GetOEMROMDate", [](auto& asked) { return asked.GetOEMROMDate(); });
    both("GetSystemID", [](auto& asked) { return asked.GetSystemID(); });
    both("GetPlatformID", [](auto& asked) { return asked.GetPlatformID(); });
    for (int i = -1; i <= 7; i++) {
        both("GetPALType(" + std::to_string(i) + ")", [i](auto& asked) { return asked.GetPALType(i); });
        both("GetPALVersion(" + std::to_string(i) + ")", [i](auto& asked) { return asked.GetPALVersion(i); });
    }
    both("GetPlatformIDValue", [](auto& asked) { return asked.GetPlatformIDValue(); });
    both("GetTPMStatus", [](auto& asked) { return int{asked.GetTPMStatus()}; });
    trace("GetROMFamily \"", smbios.GetROMFamily(), "\"");
    trace("GetPowerMicroVersion \"", smbios.GetPowerMicroVersion(), "\"");
    trace("GetSPSVersion \"", smbios.GetSPSVersion(), "\"");
    DWORD size = 1;
    const ULONG address = smbios.GetFlashBuffer(size);
    trace("GetFlashBuffer ", address, " of ", size, " bytes");
}

}  // namespace

TEST(Smbios, AnswersFromVersionRecordsOrTheOthers)
{
    CTranscript trace("smbios-servers");
    for (const char* pszName : {"old", "rack", "blade", "bare"}) {
        UseServer(ReadFile(std::filesystem::path(SERVERS) / pszName / "server.json"));
        Ask(trace, pszName);
        trace.ShowLog(false);
    }
    // The first version record of a type wins even without a text. The product's name has blanks around it.
    UseServer(RackServer(
        R"({"product": "  QV  x ", "platform_id": 65534, "firmware": [{"type": "redundant_rom"}, {"type": "redundant_rom",
        "version": "second"}, {"type": "cpld", "data": [9, 201, 202]}, {"type": "cpld", "name": "B",
        "data": [9, 203, 204]}, {"type": "sps", "data": [129, 130, 131, 132, 133, 134, 135, 136, 15]}]})"));
    Ask(trace, "records without a text");
    UseServer(RackServer(R"({"faults": {"smbios": "truncated"}})"));
    Ask(trace, "a truncated table");
}

TEST(SmbiosDeathTest, EndsTheProcessOverAnOverlongSpsVersion)
{
    UseServer(RackServer(R"({"firmware": [{"type": "sps", "data": [1, 2, 3, 4, 5, 6, 7, 8, 16]}]})"));
    EXPECT_DEATH(CSMBIOS().GetSPSVersion(), "22-byte buffer of the SPS version");
}

TEST(Smbios, BadNodesGiveNoTable)
{
    CTranscript trace("smbios-bad-nodes");
    for (const char* pszFault :
         {"missing", "empty", "read_error", "no_anchor", "misaligned", "false_anchor", "zero_address", "unreadable"}) {
        UseServer(RackServer(std::string("{\"faults\": {\"smbios\": \"") + pszFault + "\"}}"));
        CSMBIOS smbios;
        trace(pszFault, ": Initialize ", smbios.Initialize());
        trace("once more ", smbios.Initialize());
        unsigned int length = 1;
        const std::unique_ptr<unsigned char[]> pRegion(smbios.GetSMBiosMemoryHeader(length));
        trace("GetSMBiosMemoryHeader ", pRegion ? "" : "none ", "of ", length, " bytes");
        DWORD size = 1;
        trace("GetFlashBuffer ", smbios.GetFlashBuffer(size), " of ", size, " bytes");
        trace("GetProductName \"", smbios.GetProductName(), "\"");
    }
}

TEST(Smbios, StaysInsideTablesThatLie)
{
    CTranscript trace("smbios-lies");
    trace.ShowLog(false);
    UseTable(std::string(300, '\xD8') + Bytes({0, 0}), 65535, "truncated");
    Ask(trace, "no end anywhere");
    UseTable(Bytes({1, 4, 0, 0, 0, 0}), 0);
    Ask(trace, "no structure");
    trace.ShowLog(true);
    trace("GetROMFamily \"", CSMBIOS().GetROMFamily(), "\"");
}

TEST(Smbios, ReadsTheFieldsThatARecordIsLongEnoughFor)
{
    CTranscript trace("smbios-lengths");
    trace.ShowLog(false);
    for (const auto& [type, shortest, longest] :
         {std::tuple(0, 20, 23), std::tuple(193, 7, 11), std::tuple(193, 22, 23), std::tuple(195, 6, 7)}) {
        for (int length = shortest; length <= longest; length++) {
            std::string record(static_cast<std::size_t>(length), '\1');
            record[0] = static_cast<char>(type);
            record[1] = static_cast<char>(length);
            UseTable(record + Bytes({' ', 'x', ' ', 'y', 0, 0}), 1);
            CSMBIOS s;
            trace("type ", type, " of ", length, " bytes");
            trace("GetROMVersion \"", s.GetROMVersion(), "\", GetROMFamily \"", s.GetROMFamily(), "\"");
            trace("GetOEMROMName \"", s.GetOEMROMName(), "\", GetOEMROMDate \"", s.GetOEMROMDate(),
                  "\", GetPowerMicroVersion \"", s.GetPowerMicroVersion(), "\", GetPALVersion ", s.GetPALVersion(0),
                  ", GetPALType \"", s.GetPALType(0), "\", GetPlatformIDValue ", s.GetPlatformIDValue());
        }
    }
    for (const auto& [major, minor, text] :
         {std::tuple(2, 4, ""), std::tuple(1, 0, ""), std::tuple(254, 255, ""),
          std::tuple(255, 4, "K42 v2.10 (05/21/2028)"), std::tuple(0, 4, "K42 v2.10 (05/21/2028)"),
          std::tuple(255, 4, "K42 v2.1 (05/21/2028)"), std::tuple(255, 4, "K42 2.10 (05/21/2028)"),
          std::tuple(255, 4, "K42 v2-10 (05/21/2028)")}) {
        UseTable(Bytes({0, 24, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, major, minor, 0, 0}) + text +
                     std::string(2, '\0'),
                 1);
        trace("version ", major, " ", minor, " \"", text, "\": GetROMVersion \"", CSMBIOS().GetROMVersion(), "\"");
    }
    // The flash buffer in the second entry of the second record, its signature either way round.
    for (const char* pszSignature : {"BRS$", "$SRB", "$srb"}) {
        const std::string other = std::string("none") + std::string(12, '\7');
        UseTable(Bytes({229, 20, 0, 0}) + other + Bytes({0, 0, 229, 36, 0, 0}) + other + pszSignature +
                     Bytes({1, 2, 3, 0xF4, 5, 6, 7, 8, 9, 10, 11, 0xFC, 0, 0}),
                 2);
        CSMBIOS smbios;
        DWORD size = 1;
        const ULONG address = smbios.GetFlashBuffer(size) & 0xFFFFFFFF;
        trace("reserved memory \"", pszSignature, "\": GetFlashBuffer ", address, " of ", size, " bytes");
    }
    // What stands behind the last entry is a string.
    UseTable(Bytes({229, 20, 0, 0}) + "none" + std::string(12, '\7') + "$SRB" + std::string(12, '\7') + Bytes({0, 0}),
             1);
    DWORD size = 1;
    EXPECT_EQ(0u, CSMBIOS().GetFlashBuffer(size));
}

TEST(Smbios, TrimsANameAsLongAsTheTableQuickly)
{
    UseTable(Bytes({1, 8, 0, 0, 0, 1, 0, 0}) + std::string(60000, ' ') + Bytes({0, 0}), 1);
    const std::clock_t start = std::clock();
    EXPECT_STREQ("", CSystem().GetProductName());
    EXPECT_LT(std::clock() - start, 2 * CLOCKS_PER_SEC);  // processor time
}

TEST(Smbios, HandsOutTheNodesBytes)
{
    UseServer(RackServer());
    CSMBIOS smbios;
    unsigned int size = 0;
    const std::unique_ptr<unsigned char[]> pRegion(smbios.GetSMBiosMemoryHeader(size));
    const std::unique_ptr<unsigned char[]> pEntry(smbios.GetSMBiosMemoryTables(0, 0));
    EXPECT_EQ(31u, size);
    EXPECT_EQ(0, std::memcmp(pRegion.get(), pEntry.get(), 31));
}

TEST(Smbios, TakesADumpOfARealMachine)
{
    const CTestFolder folder;
    const std::string file = (folder.Path() / "dump").string();
    const auto use = [&](const std::string& dump) -> std::string {
        folder.Write("dump", dump);
        try {
            UseServer(RackServer(R"({"smbios_dump": ")" + file + R"("})"));
            return CSMBIOS().GetProductName().GetAnsiString();
        } catch (const std::exception& error) {
            return error.what();
        }
    };
    UseServer(RackServer());
    const std::string dump = sim::DumpSmbios(sim::CurrentServer()->GetSmbios());
    const std::string table = dump.substr(32);
    EXPECT_EQ("Quorvant RK740", use(dump));

    // A 64-bit entry point tells the most that the table may have, and not how many records are in it.
    const auto with64 = [](const std::string& bytes, int sum = 0) {
        std::string entry = "_SM3_" + Bytes({0, 24, 3, 2, 0, 1, 0, 0, 0, 8, 0, 32, 0, 0, 0, 0, 0, 0, 0});
        for (const char byte : entry) sum -= byte;
        entry[5] = static_cast<char>(sum);
        return entry + std::string(8, 0) + bytes;
    };
    EXPECT_EQ("Quorvant RK740", use(with64(table + "what stands behind the end")));
    const sim::SmbiosTables& tables = sim::CurrentServer()->GetSmbios();
    EXPECT_EQ(table.size(), tables.Table.size());
    SMBIOSEntryPoint was;
    std::memcpy(&was, dump.data(), sizeof was);
    EXPECT_EQ(was.wNumStructures, tables.Entry.wNumStructures);
    EXPECT_EQ(was.wMaxStructSize, tables.Entry.wMaxStructSize);
    EXPECT_EQ(3, tables.Entry.byMajorVer);
    EXPECT_EQ(0x32, tables.Entry.byBCDRevision);

    const std::string large = Bytes({200, 4, 0, 0}) + std::string(65535, 'x') + Bytes({0, 0}) + table;
    std::string damaged = dump;
    damaged[9]++;
    std::string cut = dump;
    cut[32 + 1] = 3;
    const std::string start = "The SMBIOS dump " + file;
    EXPECT_EQ(start + " has " + std::to_string(large.size()) +
                  " bytes of SMBIOS tables; servers that the library knows have at most 65535",
              use(with64(large)));
    EXPECT_EQ(start + " is damaged: a checksum of its entry point is wrong", use(damaged));
    EXPECT_EQ(start + " is damaged: a checksum of its entry point is wrong", use(with64(table, 1)));
    EXPECT_EQ(start + " is damaged: the record at byte 0 of its table is not whole", use(cut));
    EXPECT_EQ(start + " is damaged: its table has no end-of-table record",
              use(with64(table.substr(0, table.size() - 6))));
    EXPECT_EQ(start + " ends before its SMBIOS table does", use(dump.substr(0, dump.size() - 1)));
    EXPECT_EQ(start + " ends before its entry point does", use("_SM_"));
    EXPECT_EQ(start + " is no dump that dmidecode --dump-bin has written of a machine with an SMBIOS entry point",
              use("_DMI_" + dump));
}
