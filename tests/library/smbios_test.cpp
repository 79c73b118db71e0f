#include "zalph/smbios.h"

#include <cstring>
#include <ctime>
#include <memory>
#include <sstream>

#include "sim/server.h"
#include "tests/support.h"
#include "zalph/system.h"

namespace
{

const std::uint32_t TableAddress = 0x1000;

// Puts the process on a server whose table is these bytes.
void UseTable(const std::string& bytes, WORD structures)
{
    CTestFolder folder;
    SMBIOSEntryPoint entry = {};
    std::memcpy(entry.sAnchorString, "_SM_", 4);
    std::memcpy(entry.sIntermediateAS, "_DMI_", 5);
    entry.byEPSLength = sizeof entry;
    entry.dwSTAddr = sizeof entry;
    entry.wSTLength = static_cast<WORD>(bytes.size());
    entry.wNumStructures = structures;
    folder.Write("dump", std::string(reinterpret_cast<const char*>(&entry), sizeof entry) + bytes);
    UseServer(RackServer("{\"smbios_dump\": \"" + (folder.Path() / "dump").string() + "\"}"));
}

std::string Bytes(std::initializer_list<int> values)
{
    return std::string(values.begin(), values.end());
}

// What the table says of the server, and of the logic devices from number -1 on.
std::string Answers()
{
    CSMBIOS smbios;
    std::ostringstream text;
    for (const CStr& answer :
         {smbios.GetProductName(), smbios.GetROMFamily(), smbios.GetROMDate(), smbios.GetROMVersion(),
          smbios.GetRDDate(), smbios.GetBBDate(), smbios.GetOEMROMName(), smbios.GetOEMROMDate(),
          smbios.GetPowerMicroVersion(), smbios.GetSPSVersion(), smbios.GetSystemID(), smbios.GetPlatformID()})
        text << answer.GetAnsiString() << "|";
    DWORD size = 1;
    const ULONG address = smbios.GetFlashBuffer(size);
    text << "TPM " << int{smbios.GetTPMStatus()} << "|" << std::hex << address << " " << size;
    for (int i = -1; i <= 7; i++) text << "|" << smbios.GetPALType(i).GetAnsiString() << " " << smbios.GetPALVersion(i);
    return text.str();
}

}  // namespace

TEST(Smbios, AnswersFromVersionRecordsOrTheOthers)
{
    UseServer(RackServer());
    EXPECT_EQ(
        "Quorvant RK740|P70|09/12/2019|2.30|v2.10 (03/02/2018)|04/17/2016|||1.4.2|0003.0001.0003.0021.0|"
        "$4C9AA5F0|!00A5|TPM 1|6a000000 1000000| 0|System PLD 15| 0| 0| 0| 0| 0| 0| 0",
        Answers());  // with a version record of the type, the other record is not asked
    UseServer(ReadFile(std::filesystem::path(SERVERS) / "old" / "server.json"));
    EXPECT_EQ(
        "Quorvant RK610|K61|03/28/2012|2.16|11/15/2011|06/18/2010|OEM ROM|04/11/2012|3.3||"
        "$4C9A3380|!0067|TPM 0|0 0| 0|Standby CPLD 10c| 0| 0| 0| 0| 0| 6| 0",
        Answers());
    // The first version record of a type wins even without a text.
    UseServer(RackServer(R"({"platform_id": 0, "firmware": [{"type": "redundant_rom"}, {"type": "redundant_rom",
        "version": "second"}, {"type": "cpld", "data": [9, 1, 2]}, {"type": "cpld", "name": "B", "data": [9, 3, 4]},
        {"type": "sps", "data": [1, 2, 3, 4, 5, 6, 7, 8, 15]}]})"));
    EXPECT_EQ(
        "Quorvant RK740|P70|09/12/2019|2.30||04/17/2016||||0201.0403.0605.0807.f|"
        "$4C9AA5F0||TPM 1|6a000000 1000000| 0| 102|B 304| 0| 0| 0| 0| 0| 0",
        Answers());
}

TEST(SmbiosDeathTest, EndsTheProcessOverAnOverlongSpsVersion)
{
    UseServer(RackServer(R"({"firmware": [{"type": "sps", "data": [1, 2, 3, 4, 5, 6, 7, 8, 16]}]})"));
    EXPECT_DEATH(CSMBIOS().GetSPSVersion(), "22-byte buffer of the SPS version");
}

TEST(Smbios, RomVersionFallsBackStepByStep)
{
    const auto romVersion = [](int major, int minor, const std::string& text) {
        UseTable(Bytes({0, 24, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, major, minor, 0, 0}) + text +
                     std::string(2, '\0'),
                 1);
        return CSMBIOS().GetROMVersion();
    };
    EXPECT_STREQ("2.04", romVersion(2, 4, ""));
    EXPECT_STREQ("254.00", romVersion(254, 0, ""));
    EXPECT_STREQ("2.10", romVersion(255, 4, "K42 v2.10 (05/21/2018)"));
    EXPECT_STREQ("2.10", romVersion(0, 4, "K42 v2.10 (05/21/2018)"));
    EXPECT_STREQ("", romVersion(255, 4, "K42 v2.1 (05/21/2018)"));
}

TEST(Smbios, BadNodesGiveNoTable)
{
    const std::string none = "m_dwPhysicalAddress == 0 || m_dwTableLength == 0\n";
    const std::pair<const char*, std::string> cases[] = {
        {"missing", "Failed GetSMBiosMemoryHeader\n"},
        {"empty", "Failed GetSMBiosMemoryHeader\n"},
        {"read_error", ""},
        {"no_anchor", ""},
        {"misaligned", ""},
        {"false_anchor", "Found SMBIOS_ANCHOR\n"},
        {"zero_address", "Found SMBIOS_ANCHOR\nm_dwNumStructures: 13\nm_dwPhysicalAddress: 0\nm_dwTableLength: 538\n"},
    };
    for (const auto& c : cases) {
        UseServer(RackServer(std::string("{\"faults\": {\"smbios\": \"") + c.first + "\"}}"));
        CSMBIOS smbios;
        CLogCapture log;
        EXPECT_FALSE(smbios.Exists()) << c.first;
        EXPECT_EQ(c.second + none, log.Text()) << c.first;
        EXPECT_STREQ("", smbios.GetProductName()) << c.first;
        DWORD size = 1;
        EXPECT_EQ(0u, smbios.GetFlashBuffer(size)) << c.first;
    }
}

TEST(Smbios, FailedReadIsTriedOnce)
{
    UseServer(RackServer(R"({"faults": {"smbios": "unreadable"}})"));
    CSMBIOS smbios;
    EXPECT_FALSE(smbios.Initialize());
    EXPECT_TRUE(smbios.Initialize());
    CLogCapture log;
    EXPECT_STREQ("", smbios.GetProductName());
    EXPECT_EQ(
        "CSMBIOS::GetProductName()::Enter\nCSMBIOS::GetRecordByType::Enter::1\n"
        "CSMBIOS::GetRecordByType::RecordNotFound::1\nCSMBIOS::GetRecordByType::Exit::1\n"
        "CSMBIOS::GetProductName()::Exit with BLANK\n",
        log.Text());
}

TEST(Smbios, StaysInsideTablesThatLie)
{
    UseServer(RackServer(R"({"faults": {"smbios": "truncated"}})"));
    EXPECT_STREQ("Quorvant RK740", CSMBIOS().GetProductName());
    EXPECT_EQ(0, CSMBIOS().GetTPMStatus());

    UseTable(std::string(200, '\xD8'), 65535);  // no end anywhere
    EXPECT_TRUE(CSMBIOS().Exists());
    Answers();
    UseTable(Bytes({1, 4, 0, 0, 0, 0}), 0);
    EXPECT_STREQ("", CSMBIOS().GetProductName());
}

TEST(Smbios, ReadsTheFieldsThatARecordIsLongEnoughFor)
{
    const auto use = [](int type, int length) {
        std::string record(static_cast<std::size_t>(length), '\1');
        record[0] = static_cast<char>(type);
        record[1] = static_cast<char>(length);
        UseTable(record + Bytes({' ', 'x', ' ', 'y', 0, 0}), 1);
    };
    std::string answers;
    for (int length : {7, 8, 9, 10, 11, 22, 23}) {
        use(193, length);
        CSMBIOS smbios;
        answers += std::to_string(length) + (smbios.GetOEMROMName().IsEmpty() ? "" : "n") +
                   (smbios.GetOEMROMDate().IsEmpty() ? "" : "d") +
                   (smbios.GetPowerMicroVersion().IsEmpty() ? "" : "m") + (smbios.GetPALVersion(0) ? "v" : "") +
                   (smbios.GetPALType(0).IsEmpty() ? "" : "t");
    }
    EXPECT_EQ(
        "7"
        "8n"
        "9nd"
        "10ndm"
        "11ndmv"
        "22ndmv"
        "23ndmvt",
        answers);
    use(0, 21);
    EXPECT_STREQ("", CSMBIOS().GetROMVersion());
    EXPECT_STREQ("x", CSMBIOS().GetROMFamily());
    use(0, 22);
    EXPECT_STREQ("1.01", CSMBIOS().GetROMVersion());
    for (int length : {6, 7}) {
        use(195, length);
        EXPECT_EQ(length == 7 ? 0x0101 : 0, CSMBIOS().GetPlatformIDValue());
    }
    UseTable(Bytes({229, 20, 0, 0}) + "BRS$" + std::string(12, '\1') + Bytes({0, 0}), 1);
    DWORD size = 0;
    EXPECT_EQ(0x01010101u, CSMBIOS().GetFlashBuffer(size) & 0xFFFFFFFF);
    EXPECT_EQ(0x01010101u, size);
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
