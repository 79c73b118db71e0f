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
