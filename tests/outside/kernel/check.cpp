// Asks the library about the machine that it runs on and prints the answers, one a line: "NAME: ANSWER". Argument: the
// file to write the SMBIOS structure table to, as the library reads it.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "component.h"
#include "util.h"
#include "zalph/smbios.h"
#include "zalph/system.h"

CStr g_InstallLocalDir("/");

namespace
{

const DWORD KernelAddress = 0x01000000;  // RAM, which the kernel lets nobody read

void Print(const char* name, const CStr& answer)
{
    std::printf("%s: %s\n", name, answer.GetAnsiString());
}

void Print(const char* name, BOOL answer)
{
    std::printf("%s: %s\n", name, answer ? "TRUE" : "FALSE");
}

void PrintCommand(const char* name, int netFunction, int command, void* request, int requestLength)
{
    BYTE response[64] = {};
    int length = 0;
    int completionCode = 0;
    CSystem system;
    std::printf("%s: ", name);
    if (system.IpmiCommand(netFunction, command, request, requestLength, response, sizeof response, &length,
                           &completionCode)) {
        std::printf("completion code %02X, %d bytes", static_cast<unsigned>(completionCode), length);
        for (int i = 0; i < length && i < static_cast<int>(sizeof response); i++)
            std::printf(" %02X", static_cast<unsigned>(response[i]));
        std::printf("\n");
    } else {
        std::printf("nothing could be exchanged\n");
    }
}

BOOL SaveTable(const char* path)
{
    CSMBIOS smbios;
    const std::unique_ptr<unsigned char[]> region(smbios.GetSMBiosMemoryTables(0, 0));
    if (!region) return FALSE;
    SMBIOSEntryPoint entry;
    std::memcpy(&entry, region.get(), sizeof entry);

    std::vector<BYTE> table(entry.wSTLength, 0xFF);  // the table ends in zeros: so they must have been read
    CSystem system;
    if (!system.ReadPhysicalMemory(entry.dwSTAddr, table.data(), static_cast<int>(table.size()))) return FALSE;
    std::FILE* pFile = std::fopen(path, "wb");
    if (!pFile) return FALSE;
    const std::size_t written = std::fwrite(table.data(), 1, table.size(), pFile);
    return std::fclose(pFile) == 0 && written == table.size();
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "Usage: %s FILE\n", argv[0]);
        return 2;
    }
    CSystem system;
    Print("product name", system.GetProductName());
    Print("ROM family", system.GetROMFamily());
    Print("ROM date", system.GetROMDate());
    Print("ROM version", system.GetROMVersion());
    Print("table read", SaveTable(argv[1]));
    BYTE byte = 0;
    Print("kernel memory read", system.ReadPhysicalMemory(KernelAddress, &byte, 1));
    CComponent component;
    Print("driver version accepted", component.Valid_CRUDriver());

    PrintCommand("Get Device ID", 6, 1, nullptr, 0);
    LOG_VRL_REQUEST request = {};  // as long as requests come
    PrintCommand("NVRAM access", 0x36, 2, &request, sizeof request);

    // What the management controller does with an event, its text says.
    Print("flash event logged", system.LogFlashEventToVRL("P70 2.40"));
    Print("maintenance note logged", system.LogMaintenanceNoteToVRL(CStr(std::string(300, '\xAA').c_str())));
    for (const char* pszText :
         {"refused by a completion code", "status that says no", "foreign answer", "silent", "slow"})
        Print(pszText, system.LogFlashEventToVRL(pszText));
    return 0;
}
