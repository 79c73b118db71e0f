#include "zalph/smbios.h"

#include <cstring>

#include "server.h"
#include "support.h"

namespace
{

const std::uint32_t TableAddress = 0x1000;

// Puts the process on a server whose table is these bytes.
void UseTable(const std::string& bytes, WORD structures)
{
    CTempFolder folder;
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
    std::string bytes;
    for (int value : values) bytes += static_cast<char>(value);
    return bytes;
}

// An SMBIOS record from its bytes and its strings.
std::string Record(const std::string& formatted, std::initializer_list<const char*> strings)
{
    std::string record = formatted;
    for (const char* text : strings) record.append(text, std::strlen(text) + 1);
    if (strings.size() == 0) record += '\0';
    return record + '\0';
}

}  // namespace

TEST(Smbios, AnswersFromVersionRecords)
{
    UseServer(RackServer());
    CSMBIOS smbios;
    EXPECT_STREQ("Quorvant RX380 Gen9", smbios.GetProductName());
    EXPECT_STREQ("P70", smbios.GetROMFamily());
    EXPECT_STREQ("09/12/2019", smbios.GetROMDate());
    EXPECT_STREQ("2.30", smbios.GetROMVersion());
    EXPECT_STREQ("v2.10 (03/02/2018)", smbios.GetRDDate());
    EXPECT_STREQ("03/05/2015", smbios.GetBBDate());
    EXPECT_STREQ("1.0.9", smbios.GetPowerMicroVersion());
    EXPECT_STREQ("0003.0001.0003.0021.0", smbios.GetSPSVersion());
    EXPECT_STREQ("System Programmable Logic Device", smbios.GetPALType(0));
    EXPECT_EQ(21, smbios.GetPALVersion(0));
    // With a version record of the type, the other record is not asked.
    EXPECT_STREQ("", smbios.GetPALType(1));
    EXPECT_EQ(0, smbios.GetPALVersion(1));
    EXPECT_EQ(0, smbios.GetPALVersion(-1));
    EXPECT_EQ(TPM_STATUS_ENABLED, smbios.GetTPMStatus());
    EXPECT_STREQ("$0E11A5F0", smbios.GetSystemID());
    EXPECT_STREQ("!00A5", smbios.GetPlatformID());
    DWORD size = 0;
    EXPECT_EQ(0x6A000000u, smbios.GetFlashBuffer(size));
    EXPECT_EQ(0x01000000u, size);
}

TEST(Smbios, AnswersFromTheOtherRecordsOfAnOldServer)
{
    UseServer(ReadFile(std::filesystem::path(SERVERS) / "old" / "server.json"));
    CSMBIOS smbios;
    EXPECT_STREQ("2.10", smbios.GetROMVersion());  // from the BIOS version text
    EXPECT_STREQ("12/01/2010", smbios.GetRDDate());
    EXPECT_STREQ("07/10/2010", smbios.GetBBDate());
    EXPECT_STREQ("OEM ROM", smbios.GetOEMROMName());
    EXPECT_STREQ("04/04/2011", smbios.GetOEMROMDate());
    EXPECT_STREQ("3.3", smbios.GetPowerMicroVersion());
    EXPECT_STREQ("", smbios.GetSPSVersion());
    EXPECT_STREQ("Standby CPLD", smbios.GetPALType(0));
    EXPECT_EQ(0x10C, smbios.GetPALVersion(0));
    EXPECT_STREQ("", smbios.GetPALType(7));
    EXPECT_EQ(0, smbios.GetTPMStatus());
    DWORD size = 1;
    EXPECT_EQ(0u, smbios.GetFlashBuffer(size));
    EXPECT_EQ(0u, size);
}

TEST(Smbios, FirstVersionRecordWinsEvenWithoutText)
{
    UseServer(RackServer(R"({"platform_id": 0, "firmware": [{"type": "redundant_rom"}, {"type": "redundant_rom",
        "version": "second"}, {"type": "cpld", "data": [9, 1, 2]}, {"type": "cpld", "name": "B", "data": [9, 3, 4]}]})"));
    CSMBIOS smbios;
    EXPECT_STREQ("", smbios.GetRDDate());
    EXPECT_STREQ("03/05/2015", smbios.GetBBDate());
    EXPECT_STREQ("B", smbios.GetPALType(1));
    EXPECT_EQ(0x304, smbios.GetPALVersion(1));
    EXPECT_STREQ("", smbios.GetPlatformID());
}

TEST(SmbiosDeathTest, EndsTheProcessOverAnOverlongSpsVersion)
{
    UseServer(RackServer(R"({"firmware": [{"type": "sps", "data": [1, 2, 3, 4, 5, 6, 7, 8, 16]}]})"));
    EXPECT_DEATH(CSMBIOS().GetSPSVersion(), "22-byte buffer of the SPS version");
    UseServer(RackServer(R"({"firmware": [{"type": "sps", "data": [1, 2, 3, 4, 5, 6, 7, 8, 15]}]})"));
    EXPECT_STREQ("0201.0403.0605.0807.f", CSMBIOS().GetSPSVersion());
}

TEST(Smbios, RomVersionFallsBackStepByStep)
{
    const std::string type0 = Bytes({0, 24, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    const auto romVersion = [&](int major, int minor, const char* text) {
        UseTable(Record(type0 + Bytes({major, minor, 0, 0}), {text}), 1);
        return CSMBIOS().GetROMVersion();
    };
    EXPECT_STREQ("2.04", romVersion(2, 4, ""));
    EXPECT_STREQ("254.00", romVersion(254, 0, ""));
    EXPECT_STREQ("2.10", romVersion(255, 4, "A42 v2.10 (05/21/2018)"));
    EXPECT_STREQ("2.10", romVersion(0, 4, "A42 v2.10 (05/21/2018)"));
    EXPECT_STREQ("", romVersion(255, 4, "A42 v2.1 (05/21/2018)"));
}

TEST(Smbios, BadNodesGiveNoTable)
{
    const std::pair<const char*, const char*> cases[] = {
        {"missing", "Failed GetSMBiosMemoryHeader\nm_dwPhysicalAddress == 0 || m_dwTableLength == 0\n"},
        {"empty", "Failed GetSMBiosMemoryHeader\nm_dwPhysicalAddress == 0 || m_dwTableLength == 0\n"},
        {"read_error", "m_dwPhysicalAddress == 0 || m_dwTableLength == 0\n"},
        {"no_anchor", "m_dwPhysicalAddress == 0 || m_dwTableLength == 0\n"},
        {"misaligned", "m_dwPhysicalAddress == 0 || m_dwTableLength == 0\n"},
        {"false_anchor", "Found SMBIOS_ANCHOR\nm_dwPhysicalAddress == 0 || m_dwTableLength == 0\n"},
        {"zero_address",
         "Found SMBIOS_ANCHOR\nm_dwNumStructures: 13\nm_dwPhysicalAddress: 0\nm_dwTableLength: 653\n"
         "m_dwPhysicalAddress == 0 || m_dwTableLength == 0\n"},
    };
    for (const auto& c : cases) {
        UseServer(RackServer(std::string("{\"faults\": {\"smbios\": \"") + c.first + "\"}}"));
        CSMBIOS smbios;
        CLogCapture log;
        EXPECT_FALSE(smbios.Exists()) << c.first;
        EXPECT_EQ(c.second, log.Text()) << c.first;
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
    EXPECT_STREQ("Quorvant RX380 Gen9", CSMBIOS().GetProductName());
    EXPECT_EQ(0, CSMBIOS().GetTPMStatus());

    const std::string cases[] = {
        Bytes({1, 255}),                          // a record longer than the table
        Record(Bytes({1, 8, 0, 0, 0, 200}), {}),  // a string number beyond the strings
        Bytes({193, 255, 0, 0, 255, 255, 255, 255, 255, 255}),
        Bytes({229, 255, 0, 0}) + std::string(60, '$'),  // entries beyond the table
        Bytes({229, 3, 0, 0, 0, 0}),                     // shorter than its own header
        std::string(200, '\xD8'),                        // no end anywhere
    };
    for (const std::string& table : cases) {
        UseTable(table, 65535);
        CSMBIOS smbios;
        EXPECT_TRUE(smbios.Exists());
        smbios.GetProductName();
        smbios.GetROMVersion();
        smbios.GetRDDate();
        smbios.GetPALType(6);
        smbios.GetPALVersion(6);
        smbios.GetSPSVersion();
        DWORD size = 0;
        smbios.GetFlashBuffer(size);
    }
    UseTable(Bytes({1, 4, 0, 0, 0, 0}), 0);
    EXPECT_STREQ("", CSMBIOS().GetProductName());
}

TEST(Smbios, HandsOutTheNodesBytes)
{
    UseServer(RackServer());
    CSMBIOS smbios;
    unsigned int size = 0;
    unsigned char* pRegion = smbios.GetSMBiosMemoryHeader(size);
    unsigned char* pEntry = smbios.GetSMBiosMemoryTables(0, 0);
    EXPECT_EQ(31u, size);
    EXPECT_EQ(0, std::memcmp(pRegion, pEntry, 31));
    delete[] pRegion;
    delete[] pEntry;
}

TEST(Smbios, DumpsAreReadByAnIndependentReaderAndServedAgain)
{
    CTempFolder folder;
    const std::string dump = (folder.Path() / "dump").string();
    std::string output;
    ASSERT_EQ(0, RunCommand(std::string(ZALSIM) + " --server " SERVERS "/rack --dump-smbios " + dump, output))
        << output;
    ASSERT_EQ(0, RunCommand("PATH=$PATH:/usr/sbin dmidecode --from-dump " + dump, output)) << output;
    for (const char* text :
         {"SMBIOS 2.7 present.", "13 structures occupying 653 bytes.", "Version: P70 v2.30 (09/12/2019)",
          "BIOS Revision: 2.30", "Product Name: Quorvant RX380 Gen9", "DMI type 229, 20 bytes", "End Of Table"})
        EXPECT_NE(std::string::npos, output.find(text)) << text << "\n" << output;
    for (const char* complaint : {"Invalid", "BROKEN", "TRUNCATED", "Wrong"})
        EXPECT_EQ(std::string::npos, output.find(complaint)) << output;

    UseServer("{\"driver\": {\"version\": \"6.0.0.0\"}, \"smbios_dump\": \"" + dump + "\"}");
    EXPECT_STREQ("2.30", CSMBIOS().GetROMVersion());
    EXPECT_STREQ("$0E11A5F0", CSMBIOS().GetSystemID());
}
