#include "tools/deploy/identity.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "support/boot.h"
#include "support/printable.h"
#include "tools/deploy/smbiostable.h"
#include "tools/simulated.h"
#include "zalph.h"

namespace
{

const double MaxSeconds = 60;  // that reading takes
const BYTE SystemInformation = 1;
const std::size_t SerialNumber = 7;  // offset of the number of its string (DMTF DSP0134)

// The bytes from a place to the next zero; moves behind that.
std::string TakeText(const std::vector<BYTE>& table, std::size_t& place)
{
    const char* pszText = reinterpret_cast<const char*>(table.data()) + place;
    std::string text(pszText, strnlen(pszText, table.size() - place));
    place += text.size() + 1;
    return text;
}

std::string ReadSerial()
{
    std::vector<BYTE> table = ReadSmbios().value_or(sim::SmbiosTables()).Table;
    table.resize(table.size() + 2);  // zeros that end every walk
    for (std::size_t record = 0; record + sizeof(SMBIOS_HEADER) < table.size();) {
        const std::size_t length = table[record + 1];
        const bool found = table[record] == SystemInformation && length > SerialNumber;
        if (length < sizeof(SMBIOS_HEADER) || record + length >= table.size()) break;
        const int wanted = found ? table[record + SerialNumber] : 0;
        std::size_t place = record + length;
        if (table[place] == 0) place++;  // no strings: two zeros
        for (int number = 1; place < table.size(); number++) {
            std::string text = TakeText(table, place);
            if (text.empty()) break;
            if (number == wanted) return text;
        }
        record = place;
    }
    return "";
}

std::string HostName()
{
    char szName[256] = "";
    gethostname(szName, sizeof szName - 1);
    return szName;
}

}  // namespace

Identity ReadOwnIdentity()
{
    return {Printable(HostName()), Printable(CSystem().GetProductName().GetAnsiString()), Printable(ReadSerial()),
            Printable(ReadBoot())};
}

Identity ReadIdentity(CProcessRunner& runner, const DeployOptions& options)
{
    std::vector<std::string> command = {OwnProgram(), "identity"};
    if (!options.Server.empty()) command = OnServer(options.Server, command);
    const ProcessResult result = runner.Run(command, MaxSeconds, TimeLimit_End);
    if (result.End == ProcessEnd_Exited && result.Status == 0 && result.Output.size() == 4)
        return {result.Output[0], result.Output[1], result.Output[2], result.Output[3]};
    if (options.Server.empty() || result.End == ProcessEnd_Stopped) return {HostName(), "", "", ""};
    std::string reason = LastLine(result.Errors);
    const std::string mark = "zalsim: ";
    if (reason.rfind(mark, 0) == 0) reason.erase(0, mark.size());
    throw std::runtime_error("the simulated server in " + options.Server + " can't be opened: " + reason);
}

void PrintIdentity()
{
    const Identity identity = ReadOwnIdentity();
    std::printf("%s\n%s\n%s\n%s\n", identity.Host.c_str(), identity.Product.c_str(), identity.Serial.c_str(),
                identity.Boot.c_str());
}
