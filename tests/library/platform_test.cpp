#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <ctime>

#include "componentxml.h"
#include "expr.h"
#include "flashtable.h"
#include "sim/server.h"
#include "tests/support.h"
#include "util.h"
#include "zalftbl.h"
#include "zalph.h"

namespace
{

const std::uint32_t BiosArea = 0xF0000;

class CTable : public CFlashTable
{
  public:
    using CFlashTable::GetTableFromBootBlock;
};

// Reads the flash header of a BIOS area that holds bytes at offset, and 0xFF elsewhere: image name, family and
// revision.
std::string StringsOf(std::size_t offset, const std::string& bytes)
{
    UseServer(RackServer());
    std::vector<std::uint8_t> area(65536, 0xFF);
    std::copy(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), area.size() - offset)),
              area.begin() + static_cast<std::ptrdiff_t>(offset));
    sim::CurrentServer()->GetMemory().Map(BiosArea, area);
    CFlashTableHeader header;
    header.FindHeader();
    header.GetStrings();
    return (header.GetImageName() + "," + header.GetROMFamily() + "," + header.GetROMRevision()).GetAnsiString();
}

// A system that has an environment, where each variable is of 4 bytes.
class CTestSystem : public CSystem
{
  public:
    using CSystem::GetEV;
    BOOL GetEV(const char*, BYTE*, int, int& length) override
    {
        length = 4;
        return TRUE;
    }
};

}  // namespace

TEST(System, AnswersForThisHost)
{
    CTranscript trace("system");
    UseServer(RackServer());
    CSystem system;
    trace("GetOSType \"", system.GetOSType(), "\", GetOSName \"", system.GetOSName(), "\", GetOSVersionString \"",
          system.GetOSVersionString(), "\", GetOSNameAndVersion \"", system.GetOSNameAndVersion(), "\", Reboot ",
          system.Reboot());
    BYTE area[65536] = "old";
    int length = 7;
    trace("GetEV ", system.GetEV("PATH", area, 0), " ", system.GetEV("PATH", area, 4), ", SetEV ",
          system.SetEV("PATH", area, 4), ", buffer ", area);
    trace("GetEV ", system.GetEV("PATH", area, 7, length), ", length ", length);
    for (const int size : {3, 4, 5}) trace("GetEV of 4 bytes as ", size, ": ", CTestSystem().GetEV("PATH", area, size));
    for (const DWORD address : {BiosArea, BiosArea + 1}) {
        const BOOL read = system.ReadPhysicalMemory(address, area, sizeof area);
        trace("ReadPhysicalMemory from ", address, ": ", read);
    }
    const int fd = cruFd;
    trace("ReadPhysicalMemory of 16 bytes: ", system.ReadPhysicalMemory(BiosArea + 0xE0C3, area, 16));
    trace(HexDigits(std::string(area, area + 24)));
    EXPECT_TRUE(fd >= 0 && fd == cruFd);
    close(fd);
    cruFd = 0;  // open, whatever it is
    system.ReadPhysicalMemory(BiosArea, area, 1);
    EXPECT_EQ(0, cruFd);
    cruFd = -1;
    for (const char* pszServer : {R"({"driver": null})", R"({"faults": {"driver": "fails"}})"}) {
        UseServer(RackServer(pszServer));
        for (int i = 0; i < 2; i++)
            trace(pszServer, ": ReadPhysicalMemory ", system.ReadPhysicalMemory(BiosArea, area, 1));
    }
}

TEST(FlashHeader, IsFoundUpToTheEndOfTheBiosArea)
{
    const std::string header = "$ZALFLSH" + std::string(23, 'x');
    const std::string strings("name\0P99\0rev\0", 13);
    for (const std::size_t offset : {0, 12345}) EXPECT_EQ("name,P99,rev", StringsOf(offset, header + strings));
    EXPECT_EQ(",,", StringsOf(100, header + std::string(3, '\0')));
    CLogCapture log;
    EXPECT_EQ(",,", StringsOf(65519, header + strings));  // found; its strings lie beyond the end
    EXPECT_EQ("CFlashTableHeader::GetStrings::ImageName::::ROMName::::ROMRevision::\n", log.Text());
    EXPECT_EQ(",,", StringsOf(65520, header + strings));
    EXPECT_TRUE(log.Has("CFlashTableHeader::GetStrings::m_pHeader=NULL\n"));
}

TEST(Identity, TellsBlades)
{
    const std::pair<const char*, BOOL> cases[] = {
        {"QV Quorvant JT46", 1}, {"Quorvant JT46", 1}, {"QV JT46", 1}, {"  JT46 ", 1}, {"Quorvant QV JT46", 0},
        {"Quorvant RX", 0},      {"quorvant JT", 0},   {"J", 0},       {"   ", 0},
    };
    for (const auto& c : cases) {
        UseServer(RackServer(std::string("{\"product\": \"") + c.first + "\"}"));
        EXPECT_EQ(c.second, CSystem().IsBlade()) << c.first;
    }
    EXPECT_STREQ("", CSystem().GetProductName());
}

// The family is kept for the life of the process: a process of its own.
TEST(IdentityDeathTest, KeepsTheRomFamilyOnceKnown)
{
    const auto check = [] {
        CSystem system;
        UseServer(RackServer(R"({"rom": {"family": ""}, "faults": {"smbios": "missing"}})"));
        for (int i = 0; i < 2; i++) {
            CLogCapture log;
            if (!system.GetROMFamily().IsEmpty()) std::_Exit(1);
            if (!log.Has("CSystemCommon::GetROMFamily()::s_sROMName::EMPTY\nCSystemCommon::GetROMFamily::Try SMBIOS\n"))
                std::_Exit(2);
        }
        UseServer(RackServer());
        if (system.GetROMFamily() != "P70") std::_Exit(3);
        UseServer(RackServer(R"({"driver": null})"));
        CLogCapture log;
        if (system.GetROMFamily() != "P70" || cruFd >= 0) std::_Exit(4);
        std::_Exit(log.Text() ==
                           "CSystemCommon::GetROMFamily()::Enter\nROM Name value: P70\n"
                           "CSystemCommon::GetROMFamily()::Exit\n"
                       ? 0
                       : 5);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

TEST(IdentityDeathTest, TakesTheRomFamilyFromSmbiosWithoutAHeader)
{
    const auto check = [] {
        UseServer(RackServer());
        sim::CurrentServer()->GetMemory().Map(BiosArea, std::vector<std::uint8_t>(65536, 0));
        std::_Exit(CSystem().GetROMFamily() == "P70" ? 0 : 1);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

TEST(Simulation, MovesTheClockInsteadOfSleeping)
{
    const std::time_t before = std::time(nullptr);
    sleep(3600);
    usleep(30 * 1000 * 1000);
    EXPECT_EQ(3630, std::time(nullptr) - before);
    // A loop that waits by asking for the time ends.
    const auto start = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(100)) continue;
}

TEST(Library, TellsWhatItHasNoMemoryFor)
{
    CTranscript trace("no-memory");
    UseServer(RackServer());
    CTestFolder folder;
    const std::string file = folder.Write("file", "text");
    for (int number = 1; number <= 2; number++) {
        CTable table;
        FailAllocation(number);
        trace("allocation ", number, ": GetTableFromBootBlock ", table.GetTableFromBootBlock(nullptr));
        trace("error ", table.GetErrorMessage());
    }
    CSMBIOS smbios;
    for (int i = 0; i < 3; i++) {
        FailAllocation(i < 2 ? 1 : 0);
        trace("CSMBIOS::Initialize ", smbios.Initialize());
    }
    CFlashTableHeader header;
    FailAllocation(1);
    header.FindHeader();
    header.GetStrings();
    trace("GetStrings \"", header.GetROMFamily(), "\"");
    int size = -1;
    void* pBuffer = nullptr;
    FailAllocation(1);
    trace("ReadFileIntoMemory ", ReadFileIntoMemory(file.c_str(), pBuffer, size));
    trace("size ", size);
    FailAllocation(0);
}

// Memory and descriptors.
TEST(Library, ReleasesWhatItTook)
{
    UseServer(RackServer());
    CTestFolder folder;
    g_InstallLocalDir = folder.Path().c_str();
    const std::string settings = folder.Write("settings.ini", "[A]\nx = a,b\n[B]\ny=\n[A]\nz=1");
    folder.Write("qx.xml", "<zal_package><name><name_xlate lang='en'>N</name_xlate></name></zal_package>");
    const auto round = [&] {
        CStr text("abc");
        for (int i = 0; i < 3; i++) text.GetWideString();
        text.SetAt(0, 'x');
        text.MakeUpper();
        CINIFile file(settings.c_str());
        CINISection section = file.GetSection("A");
        section = file.GetSection(1);
        CSystem system;
        CSMBIOS smbios;
        DWORD size = 0;
        smbios.GetFlashBuffer(size);
        smbios.GetRDDate();
        CTable table;
        for (int i = 0; i < 2; i++) table.GetTableFromBootBlock(nullptr);
        CFlashTableHeader header;
        for (int i = 0; i < 2; i++) header.FindHeader();
        CComponentXML xml;
        xml.Initialize();
        system.IpmiCommand(6, 1, nullptr, 0, nullptr, 0, nullptr, nullptr);
        void* pBuffer = nullptr;
        int length = 0;
        EXPECT_TRUE(ReadFileIntoMemory(settings.c_str(), pBuffer, length));
        delete[] static_cast<char*>(pBuffer);
        CSymbolTable symbols;
        symbols.DefineStringSymbol("a", "text");
        CExprFunction functions[] = {{}};
        long value = 0;
        EvaluateIntegerExpression(("1" + Repeat(40, "+1") + "+$a").c_str(), &value, &symbols, functions, nullptr);
        EvaluateIntegerExpression("\"a\" + b", &value, &symbols, functions, nullptr);
        CPointerArray pointers;
        for (int i = 0; i < 3; i++) pointers.Add(&size);
        pointers.RemoveAll();
        pointers.Add(&size);
        const std::filesystem::directory_iterator descriptors("/proc/self/fd");
        return std::pair(mallinfo2().uordblks, std::distance(begin(descriptors), end(descriptors)));
    };
    // The allocator keeps up to 10 KiB at hand, which count as taken; whatever is lost has at least 16 bytes.
    const auto before = round();
    const int rounds = 2400;
    for (int i = 1; i < rounds; i++) round();
    const auto after = round();
    EXPECT_LT(after.first, before.first + rounds * 16 / 2);
    EXPECT_EQ(before.second, after.second);
}
