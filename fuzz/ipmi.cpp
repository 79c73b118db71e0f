// Answers of the IPMI driver to one command after the other.
#include <linux/ipmi.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "fuzz/fuzz.h"
#include "fuzz/host.h"
#include "zalph/system.h"

const CStepBound StepBound = {1000, 100};

namespace
{

// Each call takes its outcome from the input: a byte that says how it goes and, for a receive, what comes in.
class CIpmiDriver : public sim::IDevice
{
  public:
    explicit CIpmiDriver(CInput& input) : m_Input(input) {}

    int Ioctl(unsigned long request, void* argument) override
    {
        if (m_Input.Byte() == 0xFF) return Errno(EIO);
        return request == IPMICTL_RECEIVE_MSG_TRUNC ? Receive(*static_cast<ipmi_recv*>(argument)) : 0;
    }

    int Poll(short events, int, short& occurred) override
    {
        const int outcome = m_Input.Byte();
        if (outcome >= 0xFE) return Errno(outcome == 0xFF ? EINTR : EIO);
        occurred = events;
        return outcome != 0xFD;
    }

  private:
    // The stated length need not be that of the data.
    int Receive(ipmi_recv& message)
    {
        message.recv_type = m_Input.Byte();
        message.msgid = m_Input.Byte();
        const std::uint16_t stated = static_cast<std::uint16_t>(m_Input.Word(2));
        const std::vector<std::uint8_t> data = m_Input.Bytes(std::min(stated, message.msg.data_len));
        std::copy(data.begin(), data.end(), message.msg.data);
        message.msg.data_len = stated;
        return 0;
    }

    CInput& m_Input;
};

}  // namespace

void Fuzz(CInput& input)
{
    CIpmiDriver driver(input);
    PlayNode(&driver);
    CSystem system;
    while (!input.IsEmpty()) {
        std::vector<BYTE> response(input.Byte());
        BYTE request[3] = {};
        int length = -1;
        int completion = -1;
        if (system.IpmiCommand(6, 1, request, sizeof request, response.data(), static_cast<int>(response.size()),
                               &length, &completion)) {
            REQUIRE(length >= 0 && length < 512);
            REQUIRE(completion >= 0 && completion <= 255);
        }
        system.LogFlashEventToVRL("ROM flashed");
        system.LogMaintenanceNoteToVRL(input.Text().data());
    }
}
