#include "flashtable.h"

#include <cstring>

#include "crc32.h"
#include "sim/images/crc.h"
#include "sim/images/romimage.h"
#include "support/files.h"
#include "tests/support.h"

namespace
{

class CTestImage : public CFwImage
{
  public:
    explicit CTestImage(const std::vector<std::uint8_t>& bytes) : m_Bytes(bytes)
    {
        EXPECT_EQ(0, GetImageSize());
        EXPECT_EQ(nullptr, GetImageBuffer());
        m_sImageId = "P70";
        m_ImageVersion.Parse("2.40 (03/15/2021)");
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
    using CFlashTable::ExecuteCleanupTable;
    using CFlashTable::ExecuteCleanupTable2;
    using CFlashTable::ExecuteEraseTable;
    using CFlashTable::ExecuteProgramTable;
    using CFlashTable::ExecuteSetupTable;
    using CFlashTable::GetFeatureBits1;
    using CFlashTable::GetFeatureBits2;
    using CFlashTable::GetTableFromBootBlock;
    using CFlashTable::m_bFlashDriverInstalled;
    using CFlashTable::m_HeaderSize;
    using CFlashTable::m_pHeader;
    using CFlashTable::m_pTable;
    using CFlashTable::m_sFlashDriver;
    using CFlashTable::m_TableCRC;
    using CFlashTable::m_TableSize;
    using CFlashTable::ResetNVRAM;
    using CFlashTable::ResetTableInformation;
    using CFlashTable::SelectTable;
    using CFlashTable::SetErrorMessage;
    using CFlashTable::SetFeatureBits1;
    using CFlashTable::SetFeatureBits2;
    using CFlashTable::WriteTable;
};

const int RomSize = 1048576;

const std::vector<std::uint8_t>& NewRom()
{
    static const auto rom = sim::BuildRomImage({"P70", "2.40", "03/15/2021", "SYSTEM ROM"}, RomSize);
    return rom;
}

std::string Server(const std::string& flashFaults)
{
    return RackServer("{\"faults\": {\"flash\": " + flashFaults + "}}");
}

// Starts the server with a ROM whose header has bits set over the whole width of its fields.
void RunRomWithFeatures(DWORD features1, DWORD features2)
{
    std::vector<std::uint8_t> rom = sim::BuildRomImage({"P70", "9.87", "12/31/2099", "A ROM"}, RomSize);
    void* pHeader = memmem(rom.data() + RomSize - 65536, 65536, "$ZALFLSH", 8);
    static_cast<ZALFLSH_HEADER*>(pHeader)->FeatureBits1 = features1;
    static_cast<ZALFLSH_HEADER*>(pHeader)->FeatureBits2 = features2;
    const std::uint32_t crc = sim::Crc32(rom.data(), RomSize - sizeof crc);
    std::memcpy(rom.data() + RomSize - sizeof crc, &crc, sizeof crc);
    WriteWholeFile(ServerFolder() / "rom.bin", AsText(rom));
    RestartServer();
}

// What the server has journaled so far, without the times.
std::string Journal()
{
    std::istringstream lines(ReadFile(ServerFolder() / "journal.log"));
    std::string journal;
    for (std::string time, line; lines >> time && std::getline(lines, line);) journal += "\n  journal" + line;
    return journal;
}

// Writes a call that was made, what it gave, if anything, and what is in the table now.
template <typename Result>
void Tell(CTranscript& trace, const std::string& call, const Result& result, const CTestFlashTable& table)
{
    trace(call, " ", result);
    trace("  driver \"", table.m_sFlashDriver, "\" ", table.m_bFlashDriverInstalled, ", header ", table.m_HeaderSize,
          table.m_pHeader ? " kept" : " none", std::hex, ", features ", table.GetFeatureBits1(), " ",
          table.GetFeatureBits2(), std::dec, ", table ", table.m_TableSize, table.m_pTable ? " kept" : " none",
          std::hex, ", CRC ", table.m_TableCRC, ", error \"", table.GetErrorMessage(), "\"");
}

}  // namespace

TEST(FlashTable, KeepsWhatTheRunningRomCarries)
{
    CTranscript trace("flashtable-loading");
    CTestImage image(NewRom());
    UseServer(RackServer());
    {
        CTestFlashTable table;
        Tell(trace, "without a table: DoFlash", table.DoFlash(&image, FALSE), table);
        Tell(trace, "Initialize", table.Initialize(), table);
        for (const char* pszName : {"$ZALFLSH", "$OTHER", static_cast<const char*>(nullptr)})
            Tell(trace, std::string("GetTableFromBootBlock ") + (pszName ? pszName : "null"),
                 table.GetTableFromBootBlock(pszName), table);
        EXPECT_EQ(0, std::memcmp(table.m_pHeader, "$ZALFLSH", 8));
        EXPECT_EQ(rom_crc32(static_cast<unsigned char*>(table.m_pTable), 2048, 0), table.m_TableCRC);
        const std::string other(2048, '\xA5');
        Tell(trace, "too short: WriteTable", table.WriteTable("abc", 3), table);
        Tell(trace, "WriteTable", table.WriteTable(other.data(), 2048), table);
        Tell(trace, "GetTableFromBootBlock", table.GetTableFromBootBlock(nullptr), table);
        Tell(trace, "ResetNVRAM", table.ResetNVRAM(), table);
        trace("the server:", Journal());
        table.SetErrorMessage("a text");
        table.SetFeatureBits1(0xFEDCBA98);
        Tell(trace, "SetErrorMessage, SetFeatureBits1", "", table);
        table.SetFeatureBits2(0x89ABCDEF);
        table.RemoveDrivers();
        Tell(trace, "SetFeatureBits2, RemoveDrivers", "", table);
        table.ResetTableInformation();
        Tell(trace, "ResetTableInformation", "", table);
    }
    trace("gone");
    CTestFlashTable table;
    RunRomWithFeatures(0x87654320, 0xFEDCBA98);
    Tell(trace, "another ROM: GetTableFromBootBlock", table.GetTableFromBootBlock(nullptr), table);
    UseServer(Server(R"({"no_table": true})"));
    Tell(trace, "a header without a table: GetTableFromBootBlock", table.GetTableFromBootBlock(nullptr), table);
    Tell(trace, "DoFlash", table.DoFlash(&image, FALSE), table);
    UseServer(Server(R"({"no_header": true})"));
    Tell(trace, "a table without a header: GetTableFromBootBlock", table.GetTableFromBootBlock(nullptr), table);
    Tell(trace, "DoFlash", table.DoFlash(&image, FALSE), table);
    trace("the server:", Journal());
}

TEST(FlashTable, RunsTheTablesInTheirOrder)
{
    CTranscript trace("flashtable-flashing");
    CTestImage image(NewRom());
    for (const ULONG features : {0xFFFFFFF3u, 4u, 8u, 12u}) {
        UseServer(RackServer());
        CTestFlashTable table;
        table.GetTableFromBootBlock(nullptr);
        table.SetFeatureBits1(features);
        trace.Skip();
        Tell(trace, "DoFlash", table.DoFlash(&image, features != 4), table);
        trace("the server:", Journal());
        EXPECT_EQ(AsText(NewRom()), ReadFile(ServerFolder() / "rom.bin"));
    }
}

TEST(FlashTable, StopsAtTheFirstTableThatFails)
{
    CTranscript trace("flashtable-failures");
    CTestImage image(NewRom());
    for (int failing = 0; failing <= 5; failing++) {
        UseServer(Server("{\"fails_at_table\": " + std::to_string(failing) + "}"));
        CTestFlashTable table;
        table.GetTableFromBootBlock(nullptr);
        table.SetFeatureBits1(12);
        trace.Skip();
        trace("table ", failing, " fails");
        Tell(trace, "DoFlash", table.DoFlash(&image, FALSE), table);
        trace("the server:", Journal());
        trace("ExecuteSetupTable ", table.ExecuteSetupTable(FALSE));
        std::vector<std::uint8_t> copy(RomSize);
        trace("ExecuteBackupTable ", table.ExecuteBackupTable(copy.data(), RomSize));
        trace("ExecuteEraseTable ", table.ExecuteEraseTable());
        trace("ExecuteProgramTable ", table.ExecuteProgramTable(&image));
        trace("ExecuteCleanupTable ", table.ExecuteCleanupTable());
        trace("ExecuteCleanupTable2 ", table.ExecuteCleanupTable2());
    }
}

TEST(FlashTable, HandsOverTheBuffersOfImageAndFirmware)
{
    CTranscript trace("flashtable-buffers");
    // The firmware reserves no buffer, one that is too small; the image is one byte short.
    CTestImage image(NewRom());
    CTestImage shortImage(std::vector<std::uint8_t>(RomSize - 1));
    const std::pair<std::string, CTestImage*> cases[] = {
        {R"({"flash_buffer": null})", &image},
        {R"({"flash_buffer": {"address": "0xFA000000", "size": 1048575}})", &image},
        {R"({"flash_buffer": {"address": "0xFA000000", "size": 1048576}})", &image},
        {"{}", &shortImage},
    };
    for (const auto& [server, pImage] : cases) {
        UseServer(RackServer(server));
        CTestFlashTable table;
        table.GetTableFromBootBlock(nullptr);
        trace.Skip();
        trace(server, " and an image ", pImage->GetId(), " ", pImage->GetVersion().ToString(), " of ",
              pImage->GetImageSize(), " bytes");
        Tell(trace, "DoFlash", table.DoFlash(pImage, FALSE), table);
    }
    UseServer(RackServer());
    CTestFlashTable table;
    EXPECT_TRUE(table.SelectTable("$OTHER") && table.GetTableFromBootBlock(nullptr) && table.DoFlash(&image, FALSE));
    std::vector<std::uint8_t> copy(RomSize);
    EXPECT_FALSE(table.ExecuteBackupTable(copy.data(), RomSize - 1));
    EXPECT_TRUE(table.ExecuteBackupTable(copy.data(), RomSize));
    EXPECT_EQ(NewRom(), copy);
}
