// The management controller of script/test-kernel's machine, outside of it: answers qemu's ipmi-bmc-extern device,
// which speaks OpenIPMI's serial protocol for virtual machines, as the simulated server in a folder does. Arguments:
// the socket to listen on, the folder. What an event's text begins with makes it behave otherwise: "silent", "slow" (2
// s), "foreign" (the answer is one to another command), "refused" (a completion code), "status".
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "sim/server.h"
#include "support/descriptor.h"
#include "support/files.h"
#include "zalph/evtlog.h"

namespace
{

using Bytes = std::vector<std::uint8_t>;

// Bytes with a meaning of their own on the line; one that stands for itself comes behind the escape, with a bit set.
enum : std::uint8_t
{
    Line_EndOfMessage = 0xA0,
    Line_EndOfCommand = 0xA1,  // of what qemu says of itself
    Line_Escape = 0xAA,
    Line_EscapedBit = 0x10,
};

// A message: its number, network function and LUN, command, data, checksum. An answer has the completion code first in
// its data.
const std::size_t Message_Function = 1;
const std::size_t Message_Command = 2;
const std::size_t Message_Data = 3;
const std::size_t TextOffset = offsetof(LOG_VRL_REQUEST, VRLEntry) + sizeof(_evtLogHdr);

std::uint8_t Sum(const Bytes& bytes)
{
    return std::accumulate(bytes.begin(), bytes.end(), std::uint8_t{0},
                           [](std::uint8_t sum, std::uint8_t byte) { return static_cast<std::uint8_t>(sum + byte); });
}

bool Send(int line, Bytes message)
{
    message.push_back(static_cast<std::uint8_t>(-Sum(message)));
    std::string bytes;
    for (const std::uint8_t byte : message) {
        const bool special = byte == Line_EndOfMessage || byte == Line_EndOfCommand || byte == Line_Escape;
        if (special) bytes.push_back(static_cast<char>(Line_Escape));
        bytes.push_back(static_cast<char>(special ? byte | Line_EscapedBit : byte));
    }
    bytes.push_back(static_cast<char>(Line_EndOfMessage));
    return WriteAll(line, bytes);
}

// Answers a message, or not; false when the line is gone.
bool Answer(int line, const Bytes& message, sim::CBmc& bmc)
{
    const Bytes data(message.begin() + Message_Data, message.end());
    const std::string text(data.begin() + static_cast<std::ptrdiff_t>(std::min(TextOffset, data.size())), data.end());
    const auto begins = [&text](const char* word) { return text.rfind(word, 0) == 0; };
    if (begins("silent")) return true;
    if (begins("slow")) sleep(2);
    Bytes answer = {0xC0};  // node busy
    if (!begins("refused"))
        answer =
            bmc.Execute(message[Message_Function] & 3, message[Message_Function] >> 2, message[Message_Command], data);
    if (begins("status") && answer.size() > 2) answer[2] = 1;  // of the NVRAM access
    const auto command = static_cast<std::uint8_t>(message[Message_Command] + (begins("foreign") ? 1 : 0));
    answer.insert(answer.begin(), {message[0], static_cast<std::uint8_t>(message[Message_Function] | 4), command});
    return Send(line, answer);
}

void Serve(int line, sim::CBmc& bmc)
{
    Bytes message;
    bool escaped = false;
    std::uint8_t byte = 0;
    while (read(line, &byte, 1) == 1) {
        if (byte == Line_Escape) {
            escaped = true;
        } else if (byte == Line_EndOfMessage) {
            const bool sound = message.size() > Message_Data && Sum(message) == 0;
            if (sound) message.pop_back();
            if (sound && !Answer(line, message, bmc)) return;
            message.clear();
        } else if (byte == Line_EndOfCommand) {
            message.clear();
        } else {
            message.push_back(static_cast<std::uint8_t>(escaped ? byte & ~Line_EscapedBit : byte));
            escaped = false;
        }
    }
}

}  // namespace

int main(int argc, char** argv)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (argc != 3 || std::strlen(argv[1]) >= sizeof address.sun_path) {
        std::fprintf(stderr, "Usage: %s SOCKET FOLDER\n", argv[0]);
        return 2;
    }
    std::strcpy(address.sun_path, argv[1]);
    sim::CServer server(argv[2], {});
    const CDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener.Get(), 1) != 0) {
        std::perror(argv[1]);
        return 1;
    }
    const CDescriptor line(accept(listener.Get(), nullptr, nullptr));
    Serve(line.Get(), server.GetBmc());
    return 0;
}
