#include "flashtable.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <tuple>

#include "crc32.h"
#include "sim/images/romimage.h"
#include "tests/support.h"

namespace
{

class CTestImage : public CFwImage
{
  public:
    explicit CTestImage(const std::vector<std::uint8_t>& bytes) : m_Bytes(bytes)
    {
        m_pImageBuffer = m_Bytes.data();
        m_ImageSize = static_cast<int>(m_Bytes.size());
    }
    BOOL Initialize() override { return TRUE; }

  private:
    std::vector<std::uint8_t> m_Bytes;
};

// Opens what a component's author reaches.
class CTestFlashTable : public CFlashTable
{
  public:
    using CFlashTable::ExecuteBackupTable;
    using CFlashTable::ExecuteCleanupTable2;
    using CFlashTable::ExecuteProgramTable;
    using CFlashTable::GetFeatureBits1;
    using CFlashTable::GetTableFromBootBlock;
    using CFlashTable::m_HeaderSize;
    using CFlashTable::m_pHeader;
    using CFlashTable::m_pTable;
    using CFlashTable::m_sFlashDriver;
    using CFlashTable::m_TableCRC;
    using CFlashTable::m_TableSize;
    using CFlashTable::ResetNVRAM;
    using CFlashTable::SetFeatureBits1;
    using CFlashTable::WriteTable;
};

const std::vector<std::uint8_t>& NewRom()
{
    static const auto rom = sim::BuildRomImage({"P70", "2.40", "03/15/2021", "SYSTEM ROM"}, 1048576);
    return rom;
}

std::string Server(const std::string& flashFaults)
{
    return RackServer("{\"faults\": {\"flash\": " + flashFaults + "}}");
}

// The tables that were run, by their first letters, each with the status that it reported: "s0e0p0c0".
std::string TablesRun()
{
    std::string run;
    const std::string journal = ReadFile(ServerFolder() / "journal.log");
    for (std::size_t i = journal.find("flash end"); i != std::string::npos; i = journal.find("flash end", i + 1)) {
        const std::size_t status = journal.find("status=", i) + 7;
        run += journal[journal.find("name=", i) + 5] + journal.substr(status, journal.find('\n', i) - status);
    }
    return run;
}

std::string Rom()
{
    return ReadFile(ServerFolder() / "rom.bin");
}

}  // namespace

TEST(FlashTable, LoadsHeaderAndTableOfTheRunningRom)
{
    UseServer(RackServer());
    CTestFlashTable table;
    CLogCapture log;
    EXPECT_TRUE(table.Initialize());
    EXPECT_STREQ("zalftbl", table.m_sFlashDriver);
    EXPECT_TRUE(table.GetTableFromBootBlock(nullptr));
    EXPECT_EQ(0, std::memcmp(table.m_pHeader, "$ZALFLSH", 8));
    EXPECT_EQ(4u, table.GetFeatureBits1());
    EXPECT_EQ(31 + 11 + 4 + 18, table.m_HeaderSize);
    EXPECT_EQ(2048, table.m_TableSize);
    EXPECT_EQ(rom_crc32(static_cast<unsigned char*>(table.m_pTable), 2048, 0), table.m_TableCRC);
    char szCrc[16];
    std::snprintf(szCrc, sizeof szCrc, "0x%08lX\n", static_cast<unsigned long>(table.m_TableCRC));
    const std::string prefix = "CFlashTable::GetTableFromBootBlock: ";
    EXPECT_EQ(
        "CFlashTable::Initialize()\nCFlashTable::GetTableFromBootBlock()\nCFlashTable::SelectTable($ZALFLSH)\n"
        "CFlashTable::QueryTableInfo()\nCFlashTable::ReadHeader()\nCFlashTable::ReadTable()\n" +
            prefix + "HeaderAddr = 0x000FE0C3\n" + prefix + "HeaderSize = 64\n" + prefix + "TableAddr  = 0xFFFF0000\n" +
            prefix + "TableSize  = 2048\n" + prefix + "TableCRC   = " + szCrc,
        log.Text());
}

TEST(FlashTable, TellsOfAMissingTableOnlyWhenFlashing)
{
    CTestImage image(NewRom());
    UseServer(RackServer());
    CTestFlashTable table;
    EXPECT_FALSE(table.DoFlash(&image, FALSE));
    EXPECT_TRUE(table.GetTableFromBootBlock("$OTHER"));
    CLogCapture log;
    EXPECT_FALSE(table.DoFlash(&image, FALSE));
    EXPECT_EQ("CFlashTable::DoFlash()\nCFlashTable Error: Unable to locate a suitable flash table\n", log.Text());
    EXPECT_STREQ("Unable to locate a suitable flash table", table.GetErrorMessage());
    EXPECT_EQ("", TablesRun());

    // A table without a header is kept, and run.
    UseServer(Server(R"({"no_header": true})"));
    EXPECT_TRUE(table.GetTableFromBootBlock(nullptr));
    EXPECT_TRUE(log.Has("CFlashTable::GetTableFromBootBlock: Header not found\n"));
    EXPECT_EQ(nullptr, table.m_pTable);
    EXPECT_TRUE(table.DoFlash(&image, FALSE));
    EXPECT_EQ("s0e0p0", TablesRun());
}

TEST(FlashTable, RunsTheTablesInTheirOrder)
{
    CTestImage image(NewRom());
    const std::pair<ULONG, const char*> cases[] = {{0, "s0e0p0"}, {4, "s0e0p0c0"}, {8, "s0e0p0o0"}, {12, "s0e0p0c0o0"}};
    for (const auto& c : cases) {
        UseServer(RackServer());
        CTestFlashTable table;
        table.GetTableFromBootBlock(nullptr);
        table.SetFeatureBits1(c.first);
        const BOOL isSps = c.first != 0;
        EXPECT_TRUE(table.DoFlash(&image, isSps));
        EXPECT_EQ(c.second, TablesRun());
        EXPECT_NE(std::string::npos, ReadFile(ServerFolder() / "journal.log").find(isSps ? " sps=1" : " sps=0"));
        EXPECT_TRUE(std::equal(NewRom().begin(), NewRom().end(), Rom().begin(),
                               [](std::uint8_t a, char b) { return a == static_cast<std::uint8_t>(b); }));
    }
}

TEST(FlashTable, StopsAtTheFirstTableThatFails)
{
    CTestImage image(NewRom());
    const std::tuple<int, const char*, const char*> cases[] = {
        {0, "Can't execute the Erase table", "s255e1"},  // the setup table's status does not count
        {2, "Can't execute the Erase table", "s0e255"},       {3, "Can't execute the Program table", "s0e0p255"},
        {4, "Can't execute the Cleanup table", "s0e0p0c255"}, {5, "Can't execute the OS Cleanup table", "s0e0p0c0o255"},
    };
    for (const auto& [failing, error, run] : cases) {
        UseServer(Server("{\"fails_at_table\": " + std::to_string(failing) + "}"));
        CTestFlashTable table;
        table.GetTableFromBootBlock(nullptr);
        table.SetFeatureBits1(12);
        CLogCapture log;
        EXPECT_FALSE(table.DoFlash(&image, FALSE));
        EXPECT_STREQ(error, table.GetErrorMessage());
        EXPECT_TRUE(log.Has(std::string("CFlashTable Error: ") + error + "\n"));
        EXPECT_EQ(run, TablesRun());
    }
}

TEST(FlashTable, HandsOverTheBuffersOfImageAndFirmware)
{
    CTestImage image(NewRom());
    CTestFlashTable table;
    UseServer(RackServer());
    EXPECT_FALSE(table.ExecuteProgramTable(&image));
    EXPECT_FALSE(table.ExecuteCleanupTable2());
    EXPECT_EQ("p1o1", TablesRun());

    // The firmware reserves no buffer, one that is too small; the image is one byte short.
    CTestImage shortImage(std::vector<std::uint8_t>(1048575));
    const std::pair<std::string, CTestImage*> cases[] = {
        {R"({"flash_buffer": null})", &image},
        {R"({"flash_buffer": {"address": "0x6A000000", "size": 1048575}})", &image},
        {"{}", &shortImage},
    };
    for (const auto& c : cases) {
        UseServer(RackServer(c.first));
        table.GetTableFromBootBlock(nullptr);
        EXPECT_FALSE(table.DoFlash(c.second, FALSE)) << c.first;
        EXPECT_STREQ("Can't execute the Program table", table.GetErrorMessage());
    }

    UseServer(RackServer());
    table.GetTableFromBootBlock(nullptr);
    EXPECT_TRUE(table.DoFlash(&image, FALSE));
    std::vector<std::uint8_t> copy(NewRom().size());
    EXPECT_FALSE(table.ExecuteBackupTable(copy.data(), static_cast<int>(copy.size() - 1)));
    EXPECT_TRUE(table.ExecuteBackupTable(copy.data(), static_cast<int>(copy.size())));
    EXPECT_EQ(NewRom(), copy);
    CLogCapture log;
    EXPECT_TRUE(table.WriteTable("abc", 3) && table.ResetNVRAM());
    EXPECT_EQ("CFlashTable::WriteTable()\nCFlashTable::ResetNVRAM()\n", log.Text());
    EXPECT_NE(std::string::npos, ReadFile(ServerFolder() / "journal.log").find("flash corrupt-nvram"));
}
