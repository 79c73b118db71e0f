#include <cstring>

#include "chif.h"
#include "expr.h"
#include "smif.h"
#include "tests/library/fakechannel.h"
#include "tests/support.h"

namespace
{

// Answers register reads: the byte is 0xB4 xor the index, unless said otherwise.
std::string Answer(const std::string& packet)
{
    SMIFREQ_IO_ACCESS request;
    std::memcpy(&request, packet.data(), sizeof request);
    SMIFRSP_IO_ACCESS reply = {};
    reply.Status = request.Index == 9 ? 1 : 0;
    reply.Value = static_cast<BYTE>((0xB4 ^ request.Index));
    if (request.Operation == IoAccessOp_GetXPLD) reply.Value = 0x0F;
    if (request.Operation == IoAccessOp_GetGPI) reply.Value = request.Index == 1 ? 0x04 : 0x80;
    return std::string(reinterpret_cast<const char*>(&reply), sizeof reply).substr(sizeof(SMIFHDR));
}

}  // namespace

TEST(ExprFunctions, ReadBitsOfHardwareRegisters)
{
    CTranscript trace("expr-functions");
    g_FakeChannel = {};
    g_FakeChannel.answer[SMIFCMD_IO_ACCESS] = Answer;
    CChannelInterface channel;
    for (CChannelInterface* pChannel : {&channel, static_cast<CChannelInterface*>(nullptr)}) {
        trace(pChannel ? "on a channel" : "without a channel");
        CExprFunction functions[] = {{"MEMID", ExprFunc_MemID, pChannel},
                                     {"CPLD", ExprFunc_CPLD, pChannel},
                                     {"XPLD", ExprFunc_XPLD, pChannel},
                                     {"GPI", ExprFunc_GPI, pChannel},
                                     {nullptr, nullptr, nullptr}};
        for (const char* pszText :
             {"CPLD(0)",  "cpld(0, 2:5)", "MEMID(0, 7)", "MEMID(0, 0:0)", "CPLD(1 + 2)", "XPLD(255, 3:4)", "GPI(0)",
              "GPI(10)",  "GPI(9)",       "GPI(63)",     "GPI(64)",       "GPI(-1)",     "GPI(64",         "GPI(\"x\")",
              "GPI(1",    "GPI 1",        "GPI()",       "GPI(1,2)",      "GPI(74 - 2)", "CPLD(9)",        "CPLD(256)",
              "MEMID(9)", "XPLD(9)",      "GPI(72 - 9)", "CPLD(1, 8)"}) {
            g_FakeChannel.sent.clear();
            long value = 99;
            const int error = EvaluateIntegerExpression(pszText, &value, nullptr, functions, nullptr);
            trace(pszText, ": error ", error, ", value ", value);
            for (const std::string& packet : g_FakeChannel.sent) {
                SMIFREQ_IO_ACCESS request;
                std::memcpy(&request, packet.data(), sizeof request);
                trace("  operation ", request.Operation, ", index ", request.Index);
            }
        }
    }
}
