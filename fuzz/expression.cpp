// An expression, and behind its NUL the management processor's replies to what its functions ask.
#include <cstring>

#include "chif.h"
#include "expr.h"
#include "fuzz/channel.h"

const CStepBound StepBound = {10000, 100};

namespace
{

// A bad divisor faults the process, as is intended. So this takes only texts where every divisor is a number from 1 on,
// and no operator follows it that would make it a part of a larger divisor.
bool DividesByNumbersAlone(const char* pszText)
{
    const char* const pszSpace = " \t\n\v\f\r";
    while ((pszText = std::strpbrk(pszText, "/%"))) {
        const char* pszNumber = pszText + 1 + std::strspn(pszText + 1, pszSpace);
        const std::size_t digits = std::strspn(pszNumber, "0123456789");
        pszText = pszNumber + digits + std::strspn(pszNumber + digits, pszSpace);
        if (digits < 1 || digits > 9 || *pszNumber == '0' || std::strspn(pszText, "*/%") > 0) return false;
    }
    return true;
}

}  // namespace

void Fuzz(CInput& input)
{
    const std::vector<char> text = input.Text();
    if (!DividesByNumbersAlone(text.data())) return;

    UseReplies(input);
    CChannelInterface channel;
    CExprFunction functions[] = {{"MEMID", ExprFunc_MemID, &channel}, {"CPLD", ExprFunc_CPLD, &channel},
                                 {"XPLD", ExprFunc_XPLD, &channel},   {"GPI", ExprFunc_GPI, &channel},
                                 {"Absent", ExprFunc_CPLD, nullptr},  {}};
    CSymbolTable symbols;
    symbols.DefineIntegerSymbol("x", 7);
    symbols.DefineStringSymbol("Name", "P70");
    symbols.Add("undefined");
    long result = 1;
    const int error = EvaluateIntegerExpression(text.data(), &result, &symbols, functions, nullptr);
    REQUIRE(error >= ExprError_None && error <= ExprError_Runtime);
    REQUIRE(error == ExprError_None || result == 0);
}
