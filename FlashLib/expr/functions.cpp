#include "chif.h"
#include "expr.h"

namespace
{

// An integer argument from 0 to limit.
ExprErrorType GetArgument(CExprParser& parser, DWORD limit, int& argument)
{
    CExprValue value;
    const ExprErrorType error = parser.Parse(&value);
    if (error != ExprError_None) return error;
    if (!value.IsInteger()) return ExprError_Type;
    if (static_cast<DWORD>(value.Value.Integer) > limit) return ExprError_Range;
    argument = value.Value.Integer;
    return ExprError_None;
}

using READ = BOOL (CChannelInterface::*)(int index, UCHAR* pValue);

// The bits low to high of a register byte.
ExprErrorType ReadBits(CExprLexer& lexer, CExprParser& parser, CExprValue* result, void* context, READ read)
{
    int index = 0;
    int low = 0;
    int high = 0;
    const ExprErrorType error = GetByteAndBits(lexer, parser, index, low, high);
    if (error != ExprError_None) return error;

    CChannelInterface* pChannel = static_cast<CChannelInterface*>(context);
    UCHAR byte = 0;
    if (!pChannel || !(pChannel->*read)(index, &byte)) return ExprError_Runtime;
    result->SetInteger((byte >> low) & ((1 << (high - low + 1)) - 1));
    return ExprError_None;
}

}  // namespace

ExprErrorType GetByteAndBits(CExprLexer& lexer, CExprParser& parser, int& index, int& low, int& high)
{
    low = 0;
    high = 7;
    if (!lexer.EatToken(Token_LeftParen)) return ExprError_Syntax;
    ExprErrorType error = GetArgument(parser, 255, index);

    if (error == ExprError_None && lexer.EatToken(Token_Comma)) {
        error = GetArgument(parser, 7, low);
        high = low;
        if (error == ExprError_None && lexer.EatToken(Token_Colon)) {
            error = GetArgument(parser, 7, high);
            if (error == ExprError_None && high < low) error = ExprError_Range;
        }
    }
    if (error != ExprError_None) return error;
    return lexer.EatToken(Token_RightParen) ? ExprError_None : ExprError_Syntax;
}

ExprErrorType ExprFunc_MemID(CExprLexer& lexer, CExprParser& parser, CExprValue* result, void* context, void*)
{
    return ReadBits(lexer, parser, result, context, &CChannelInterface::ReadMEMID);
}

ExprErrorType ExprFunc_CPLD(CExprLexer& lexer, CExprParser& parser, CExprValue* result, void* context, void*)
{
    return ReadBits(lexer, parser, result, context, &CChannelInterface::ReadCPLD);
}

ExprErrorType ExprFunc_XPLD(CExprLexer& lexer, CExprParser& parser, CExprValue* result, void* context, void*)
{
    return ReadBits(lexer, parser, result, context, &CChannelInterface::ReadXPLD);
}

ExprErrorType ExprFunc_GPI(CExprLexer& lexer, CExprParser& parser, CExprValue* result, void* context, void*)
{
    if (!lexer.EatToken(Token_LeftParen)) return ExprError_Syntax;
    int number = 0;
    const ExprErrorType error = GetArgument(parser, 63, number);
    if (error != ExprError_None) return error;
    if (!lexer.EatToken(Token_RightParen)) return ExprError_Syntax;

    CChannelInterface* pChannel = static_cast<CChannelInterface*>(context);
    UCHAR byte = 0;
    if (!pChannel || !pChannel->ReadGPI(number / 8, &byte)) return ExprError_Runtime;
    result->SetInteger((byte >> (number % 8)) & 1);
    return ExprError_None;
}
