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

// "value", or "error N".
std::string Evaluate(const char* text, CChannelInterface* channel)
{
    CExprFunction functions[] = {{"MEMID", ExprFunc_MemID, channel},
                                 {"CPLD", ExprFunc_CPLD, channel},
                                 {"XPLD", ExprFunc_XPLD, channel},
                                 {"GPI", ExprFunc_GPI, channel},
                                 {nullptr, nullptr, nullptr}};
    long value = 0;
    const int error = EvaluateIntegerExpression(text, &value, nullptr, functions, nullptr);
    return error == ExprError_None ? std::to_string(value) : "error " + std::to_string(error);
}

}  // namespace

TEST(ExprFunctions, ReadBitsOfHardwareRegisters)
{
    g_FakeChannel = {};
    g_FakeChannel.answer[SMIFCMD_IO_ACCESS] = Answer;
    CChannelInterface channel;
    const std::pair<const char*, const char*> cases[] = {
        {"CPLD(0)", "180"},        {"cpld(0, 2:5)", "13"}, {"MEMID(0, 7)", "1"},   {"MEMID(0, 0:0)", "0"},
        {"CPLD(1 + 2)", "183"},    {"XPLD(0, 3:4)", "1"},  {"GPI(10)", "1"},       {"GPI(9)", "0"},
        {"GPI(63)", "1"},          {"GPI(64)", "error 4"}, {"GPI(-1)", "error 4"}, {"GPI(64", "error 4"},
        {"GPI(\"x\")", "error 3"}, {"GPI(1", "error 2"},   {"GPI 1", "error 2"},   {"CPLD(9)", "error 6"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.second, Evaluate(c.first, &channel)) << c.first;
    // Without a channel the arguments are read first.
    EXPECT_EQ("error 4", Evaluate("CPLD(256)", nullptr));
    EXPECT_EQ("error 2", Evaluate("GPI(1", nullptr));
    EXPECT_EQ("error 6", Evaluate("XPLD(1)", nullptr));
    EXPECT_EQ("error 6", Evaluate("GPI(1)", nullptr));
}
