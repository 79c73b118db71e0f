#include "sim/bmc/ipminode.h"

#include <linux/ipmi.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <vector>

#include "sim/base/clock.h"

namespace sim
{

namespace
{

const std::size_t MaxMessage = 270;  // the driver's limit

class CIpmiNode : public IDevice
{
  public:
    CIpmiNode(CBmc& bmc, const IpmiFaults& faults, CCapture& capture)
        : m_Bmc(bmc), m_Faults(faults), m_Capture(capture), m_Interruptions(faults.Interruptions)
    {
    }

    int Ioctl(unsigned long request, void* argument) override
    {
        switch (request) {
            case IPMICTL_SEND_COMMAND:
                return Send(*static_cast<const ipmi_req*>(argument));
            case IPMICTL_RECEIVE_MSG_TRUNC:
                return Receive(*static_cast<ipmi_recv*>(argument), true);
            case IPMICTL_RECEIVE_MSG:
                return Receive(*static_cast<ipmi_recv*>(argument), false);
            default:
                return Errno(ENOTTY);
        }
    }

    short EventsToWaitFor() const override { return POLLIN | POLLERR; }

    int Poll(short events, int timeout, short& occurred) override
    {
        if (m_Interruptions > 0) {
            m_Interruptions--;
            return Errno(EINTR);
        }
        if (m_Faults.PollFails) return Errno(ENOMEM);
        CClock& clock = CClock::Instance();
        std::int64_t wait = timeout < 0 ? 3600000 * Millisecond : timeout * Millisecond;
        if (!m_Answers.empty()) wait = std::min(wait, std::max<std::int64_t>(0, m_Answers.front().Ready - clock.Now()));
        if (!IsReady()) clock.Wait(wait);
        occurred = IsReady() ? static_cast<short>(events & POLLIN) : short{0};
        return occurred != 0;
    }

  private:
    struct Answer
    {
        std::int64_t Ready;
        int Type;
        long MessageId;
        unsigned char NetFunction;
        unsigned char Command;
        std::vector<std::uint8_t> Data;
    };

    bool IsReady() const { return !m_Answers.empty() && m_Answers.front().Ready <= CClock::Instance().Now(); }

    int Send(const ipmi_req& request)
    {
        ipmi_system_interface_addr address = {};
        if (request.addr_len > sizeof(ipmi_addr) || request.addr_len < sizeof address) return Errno(EINVAL);
        std::memcpy(&address, request.addr, sizeof address);
        if (address.addr_type != IPMI_SYSTEM_INTERFACE_ADDR_TYPE || address.channel != IPMI_BMC_CHANNEL ||
            address.lun > 3 || (request.msg.netfn & 1) != 0)
            return Errno(EINVAL);
        if (request.msg.data_len > MaxMessage) return Errno(EMSGSIZE);
        Record(Direction_Request, request.msgid, request.msg.netfn, address.lun, request.msg);
        if (m_Faults.SendFails) {
            RecordText("The driver does not take the message");
            return Errno(EIO);
        }

        std::vector<std::uint8_t> response = m_Bmc.Execute(address.lun, request.msg.netfn, request.msg.cmd,
                                                           {request.msg.data, request.msg.data + request.msg.data_len});
        if (m_Faults.Silent) return 0;
        if (m_Faults.EmptyAnswer) response.clear();
        response.resize(response.size() + static_cast<std::size_t>(m_Faults.Padding));
        m_Answers.push_back({CClock::Instance().Now() + m_Faults.DelayMs * Millisecond,
                             m_Faults.Event ? IPMI_ASYNC_EVENT_RECV_TYPE : IPMI_RESPONSE_RECV_TYPE,
                             m_Faults.Foreign ? request.msgid + 1 : request.msgid,
                             static_cast<unsigned char>(request.msg.netfn | 1), request.msg.cmd, response});
        return 0;
    }

    // As the driver: with truncation a message that is too long comes shortened, and the call still fails.
    int Receive(ipmi_recv& message, bool truncate)
    {
        const ipmi_system_interface_addr address = {IPMI_SYSTEM_INTERFACE_ADDR_TYPE, IPMI_BMC_CHANNEL, 0};
        if (!IsReady()) {
            RecordText("Nothing came that could be received");
            return Errno(EAGAIN);
        }
        if (message.addr_len < sizeof address) return Errno(EINVAL);
        const Answer answer = m_Answers.front();
        const bool tooLong = answer.Data.size() > message.msg.data_len;
        if (tooLong && !truncate) return Errno(EMSGSIZE);
        m_Answers.pop_front();

        std::memcpy(message.addr, &address, sizeof address);
        message.addr_len = sizeof address;
        message.recv_type = answer.Type;
        message.msgid = answer.MessageId;
        message.msg.netfn = answer.NetFunction;
        message.msg.cmd = answer.Command;
        if (!tooLong) message.msg.data_len = static_cast<unsigned short>(answer.Data.size());
        std::copy_n(answer.Data.begin(), message.msg.data_len, message.msg.data);
        Record(Direction_Reply, answer.MessageId, answer.NetFunction, 0, message.msg);
        if (answer.Type != IPMI_RESPONSE_RECV_TYPE) RecordText("It came as an event");
        if (m_Faults.Foreign) RecordText("Its message id is another one's");
        return tooLong ? Errno(EMSGSIZE) : 0;
    }

    void Record(Direction direction, long messageId, int netFunction, int lun, const ipmi_msg& message)
    {
        std::string bytes = {static_cast<char>(netFunction << 2 | lun), static_cast<char>(message.cmd)};
        if (message.data_len != 0) bytes.append(reinterpret_cast<const char*>(message.data), message.data_len);
        m_Capture.NoteFault(FindFaults(m_Faults));
        m_Capture.AddIpmi(direction, static_cast<std::uint64_t>(messageId), bytes);
    }

    // Why there is no message, or not the one that it is taken for.
    void RecordText(const std::string& text)
    {
        m_Capture.NoteFault(FindFaults(m_Faults));
        m_Capture.AddIpmiText(text);
    }

    CBmc& m_Bmc;
    const IpmiFaults& m_Faults;
    CCapture& m_Capture;
    int m_Interruptions;
    std::deque<Answer> m_Answers;
};

}  // namespace

std::unique_ptr<IDevice> OpenIpmiNode(CBmc& bmc, const IpmiFaults& faults, CCapture& capture)
{
    if (faults.Missing) {
        errno = ENOENT;
        return nullptr;
    }
    return std::make_unique<CIpmiNode>(bmc, faults, capture);
}

}  // namespace sim
