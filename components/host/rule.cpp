#include "rule.h"

#include <cctype>

#include "fwversion.h"
#include "zalph/system.h"

namespace
{

const int MaxShownLength = 200;

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

RuleResult EvaluateRule(const char* text, CSymbolTable* symbols, CChannelInterface* channel)
{
    CExprFunction functions[] = {{"MEMID", ExprFunc_MemID, channel},
                                 {"CPLD", ExprFunc_CPLD, channel},
                                 {"XPLD", ExprFunc_XPLD, channel},
                                 {"GPI", ExprFunc_GPI, channel},
                                 {nullptr, nullptr, nullptr}};
    return EvaluateRule(text, symbols, functions);
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
