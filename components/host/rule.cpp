#include "rule.h"

#include <cctype>

#include "fwversion.h"
#include "zalph/system.h"

namespace
{

const int MaxShownLength = 200;
const DWORD MaxBus = 0xFF;
const DWORD MaxAddress = 0xFFFF;

// Where the token begins at which the lexer stands.
int TokenStart(const char* text, const CExprLexer& stopped)
{
    const char* pStart = stopped.pszExpression;
    if (stopped.IsEOF() || stopped.Current.Type == Type_Unknown) return static_cast<int>(pStart - text);
    CExprLexer lexer(text);
    do {
        pStart = lexer.pszExpression;
        while (std::isspace(static_cast<unsigned char>(*pStart))) pStart++;
        lexer.GetNext();
    } while (lexer.pszExpression < stopped.pszExpression);
    return static_cast<int>(pStart - text);
}

// An I2C device, which is a function's first two arguments.
struct I2CPlace
{
    int Bus;
    int Address;
};

ExprErrorType ReadNumber(CExprParser& parser, DWORD limit, int& number)
{
    CExprValue value;
    const ExprErrorType error = parser.Parse(&value);
    if (error != ExprError_None) return error;
    if (!value.IsInteger()) return ExprError_Type;
    if (static_cast<DWORD>(value.Value.Integer) > limit) return ExprError_Range;
    number = value.Value.Integer;
    return ExprError_None;
}

// Reads "( bus, address" and leaves the lexer behind it.
ExprErrorType ReadPlace(CExprLexer& lexer, CExprParser& parser, I2CPlace& place)
{
    if (!lexer.EatToken(Token_LeftParen)) return ExprError_Syntax;
    const ExprErrorType error = ReadNumber(parser, MaxBus, place.Bus);
    if (error != ExprError_None) return error;
    if (!lexer.EatToken(Token_Comma)) return ExprError_Syntax;
    return ReadNumber(parser, MaxAddress, place.Address);
}

ExprErrorType RuleI2C(CExprLexer& lexer, CExprParser& parser, CExprValue* result, void* context, void*)
{
    I2CPlace place = {};
    ExprErrorType error = ReadPlace(lexer, parser, place);
    if (error != ExprError_None) return error;
    // What follows is a register byte and its bits, whose parenthesis the comma stands for.
    if (!lexer.Current.IsToken(Token_Comma)) return ExprError_Syntax;
    lexer.Current.Value.Token = Token_LeftParen;
    int index = 0;
    int low = 0;
    int high = 0;
    error = GetByteAndBits(lexer, parser, index, low, high);
    if (error != ExprError_None) return error;

    CChannelInterface* pChannel = static_cast<CChannelInterface*>(context);
    const UCHAR request = static_cast<UCHAR>(index);
    UCHAR byte = 0;
    if (!pChannel || !pChannel->I2CTransaction(place.Bus, place.Address, &request, 1, &byte, 1))
        return ExprError_Runtime;
    result->SetInteger((byte >> low) & ((1 << (high - low + 1)) - 1));
    return ExprError_None;
}

// Writes and reads nothing: a device acknowledges its address, and nothing in it changes.
ExprErrorType RulePresent(CExprLexer& lexer, CExprParser& parser, CExprValue* result, void* context, void*)
{
    I2CPlace place = {};
    const ExprErrorType error = ReadPlace(lexer, parser, place);
    if (error != ExprError_None) return error;
    if (!lexer.EatToken(Token_RightParen)) return ExprError_Syntax;

    CChannelInterface* pChannel = static_cast<CChannelInterface*>(context);
    if (!pChannel) return ExprError_Runtime;
    const auto answers = [&] { return pChannel->I2CTransaction(place.Bus, place.Address, nullptr, 0, nullptr, 0); };
    BOOL present = answers();
    if (!present) {
        // The device is absent only where the processor, which asks it, is there; one reply may have been lost.
        if (!pChannel->VerifySMIF()) return ExprError_Runtime;
        present = answers();
    }
    result->SetInteger(present);
    return ExprError_None;
}

}  // namespace

void DefineServerSymbols(CSymbolTable& symbols, const CChannelInterface& channel)
{
    CSystem system;
    CFwVersion rom;
    rom.Parse(system.GetROMVersion());
    symbols.DefineIntegerSymbol("RomMajor", rom.Major);
    symbols.DefineIntegerSymbol("RomMinor", rom.Minor);
    symbols.DefineIntegerSymbol("PlatformId", system.GetPlatformIDValue());
    symbols.DefineIntegerSymbol("Blade", system.IsBlade());
    symbols.DefineIntegerSymbol("Generation", channel.GetMOXGeneration());
    symbols.DefineIntegerSymbol("MoxMajor", channel.GetMOXMajorVersion());
    symbols.DefineIntegerSymbol("MoxMinor", channel.GetMOXMinorVersion());
}

std::vector<CExprFunction> RuleFunctions(CChannelInterface* channel)
{
    return {{"MEMID", ExprFunc_MemID, channel}, {"CPLD", ExprFunc_CPLD, channel}, {"XPLD", ExprFunc_XPLD, channel},
            {"GPI", ExprFunc_GPI, channel},     {"I2C", RuleI2C, channel},        {"PRESENT", RulePresent, channel},
            {nullptr, nullptr, nullptr}};
}

// As EvaluateIntegerExpression, with the place.
RuleResult EvaluateRule(const char* text, CSymbolTable* symbols, CExprFunction* functions)
{
    CExprLexer lexer(text);
    lexer.GetNext();
    CExprParser parser(lexer, symbols, functions, nullptr);
    CExprValue value;
    RuleResult result = {parser.Parse(&value), 0, 0};
    if (result.Error == ExprError_None && !lexer.IsEOF()) result.Error = ExprError_Syntax;
    if (result.Error == ExprError_None && !value.IsInteger()) result.Error = ExprError_Type;
    if (result.Error == ExprError_None)
        result.Value = value.Value.Integer;
    else
        result.Place = TokenStart(text, lexer);
    return result;
}

RuleResult EvaluateRule(const char* text, CSymbolTable* symbols, CChannelInterface* channel)
{
    return EvaluateRule(text, symbols, RuleFunctions(channel).data());
}

const char* RuleErrorName(ExprErrorType error)
{
    switch (error) {
        case ExprError_None:
            return "no error";
        case ExprError_Empty:
            return "empty expression";
        case ExprError_Syntax:
            return "syntax error";
        case ExprError_Type:
            return "not an integer";
        case ExprError_Range:
            return "argument out of range";
        case ExprError_Variable:
            return "undefined name";
        case ExprError_Runtime:
            return "hardware can't be read";
    }
    return "unknown error";
}

CStr ShownRule(const CStr& rule)
{
    return rule.GetLength() <= MaxShownLength ? rule : rule.Left(MaxShownLength) + "...";
}

CStr DescribeRuleError(const char* subject, const CStr& rule, const RuleResult& result)
{
    const bool atEnd = result.Place >= rule.GetLength();
    CStr place;
    if (atEnd)
        place = "at its end";
    else
        place.Format("at character %d, \"%.20s\"", result.Place + 1, rule.GetAnsiString() + result.Place);
    return CStr(subject) + " \"" + ShownRule(rule) + "\" can't be evaluated: " + RuleErrorName(result.Error) + " " +
           place + ".";
}
