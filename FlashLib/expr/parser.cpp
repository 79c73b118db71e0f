#include <strings.h>

#include "expr.h"

namespace
{

// Wrapping 32-bit arithmetic. Divisors are not checked: a bad one faults, as is intended.
std::int32_t Apply(TokenType operation, std::int32_t left, std::int32_t right)
{
    const DWORD a = static_cast<DWORD>(left);
    const DWORD b = static_cast<DWORD>(right);
    switch (operation) {
        case Token_BooleanOR:
            return left != 0 || right != 0;
        case Token_BooleanAND:
            return left != 0 && right != 0;
        case Token_BitOR:
            return left | right;
        case Token_BitXOR:
            return left ^ right;
        case Token_BitAND:
            return left & right;
        case Token_Equal:
            return left == right;
        case Token_NotEqual:
            return left != right;
        case Token_LessThan:
            return left < right;
        case Token_LessThanOrEqual:
            return left <= right;
        case Token_GreaterThan:
            return left > right;
        case Token_GreaterThanOrEqual:
            return left >= right;
        case Token_LeftShift:
            return static_cast<std::int32_t>(a << (b & 31));
        case Token_RightShift:
            return left >> (b & 31);
        case Token_Plus:
            return static_cast<std::int32_t>(a + b);
        case Token_Minus:
            return static_cast<std::int32_t>(a - b);
        case Token_Asterisk:
            return static_cast<std::int32_t>(a * b);
        case Token_Slash:
            return left / right;
        default:
            return left % right;
    }
}

// True when the token is one of these.
template <TokenType... Tokens>
bool IsOneOf(const CExprValue& token)
{
    return token.IsToken() && ((token.Value.Token == Tokens) || ...);
}

void Combine(CExprValue* left, TokenType operation, const CExprValue& right)
{
    left->Value.Integer = Apply(operation, left->Value.Integer, right.Value.Integer);
}

}  // namespace

CExprParser::CExprParser(CExprLexer& lexer, CSymbolTable* symbols, CExprFunction* functions, void* context)
    : Lexer(lexer), pSymbolTable(symbols), pFunctionList(functions), Context(context), m_nNesting(0)
{
}

ExprErrorType CExprParser::Parse(CExprValue* result)
{
    result->Clear();
    return Lexer.IsEOF() ? ExprError_Empty : Nested<&CExprParser::Level1>(result);
}

template <CExprParser::LEVEL Level>
ExprErrorType CExprParser::Nested(CExprValue* result)
{
    if (m_nNesting > MaxNesting) return ExprError_Syntax;
    m_nNesting++;
    const ExprErrorType error = (this->*Level)(result);
    m_nNesting--;
    return error;
}

// With the lexer on the operator behind left: reads on and evaluates the other side. Both must be integers; an operator
// of the same level behind one that is none is still read.
template <CExprParser::LEVEL Operand, TokenType... Operators>
ExprErrorType CExprParser::RightSide(const CExprValue* left, CExprValue* right)
{
    Lexer.GetNext();
    if (!left->IsInteger()) return ExprError_Type;
    const ExprErrorType error = (this->*Operand)(right);
    if (error != ExprError_None || right->IsInteger()) return error;
    if (IsOneOf<Operators...>(Lexer.Current)) Lexer.GetNext();
    return ExprError_Type;
}

// For an operator where a | (b | c) is (a | b) | c: applied from the left, so that a chain of any length needs no
// stack.
template <CExprParser::LEVEL Operand, TokenType Operator>
ExprErrorType CExprParser::Chain(CExprValue* result)
{
    ExprErrorType error = (this->*Operand)(result);
    while (error == ExprError_None && Lexer.Current.IsToken(Operator)) {
        CExprValue right;
        error = RightSide<Operand, Operator>(result, &right);
        if (error == ExprError_None) Combine(result, Operator, right);
    }
    return error;
}

// For operators that have to wait for what follows: a / (b / c).
template <CExprParser::LEVEL Operand, TokenType... Operators>
ExprErrorType CExprParser::Group(CExprValue* result)
{
    const ExprErrorType error = (this->*Operand)(result);
    if (error != ExprError_None || !IsOneOf<Operators...>(Lexer.Current)) return error;
    return GroupRest<Operand, Operators...>(result);
}

template <CExprParser::LEVEL Operand, TokenType... Operators>
ExprErrorType CExprParser::GroupRest(CExprValue* result)
{
    const TokenType operation = Lexer.Current.Value.Token;
    CExprValue right;
    ExprErrorType error = RightSide<Operand, Operators...>(result, &right);
    if (error == ExprError_None && IsOneOf<Operators...>(Lexer.Current))
        error = Nested<&CExprParser::GroupRest<Operand, Operators...>>(&right);
    if (error == ExprError_None) Combine(result, operation, right);
    return error;
}

ExprErrorType CExprParser::Level1(CExprValue* result)
{
    return Chain<&CExprParser::Level2, Token_BooleanOR>(result);
}

ExprErrorType CExprParser::Level2(CExprValue* result)
{
    return Chain<&CExprParser::Level3, Token_BooleanAND>(result);
}

ExprErrorType CExprParser::Level3(CExprValue* result)
{
    return Chain<&CExprParser::Level4, Token_BitOR>(result);
}

ExprErrorType CExprParser::Level4(CExprValue* result)
{
    return Chain<&CExprParser::Level5, Token_BitXOR>(result);
}

ExprErrorType CExprParser::Level5(CExprValue* result)
{
    return Chain<&CExprParser::Level6, Token_BitAND>(result);
}

ExprErrorType CExprParser::Level6(CExprValue* result)
{
    return Group<&CExprParser::Level7, Token_Equal, Token_NotEqual>(result);
}

ExprErrorType CExprParser::Level7(CExprValue* result)
{
    return Group<&CExprParser::Level8, Token_LessThan, Token_LessThanOrEqual, Token_GreaterThan,
                 Token_GreaterThanOrEqual>(result);
}

ExprErrorType CExprParser::Level8(CExprValue* result)
{
    return Group<&CExprParser::Level9, Token_LeftShift, Token_RightShift>(result);
}

// a - (b - (c - d)) is a - b + c - d: every minus turns the signs behind it, so that a sum of any length needs no
// stack.
ExprErrorType CExprParser::Level9(CExprValue* result)
{
    bool negative = false;
    ExprErrorType error = Level10(result);
    while (error == ExprError_None && IsOneOf<Token_Plus, Token_Minus>(Lexer.Current)) {
        if (Lexer.Current.IsToken(Token_Minus)) negative = !negative;
        CExprValue right;
        error = RightSide<&CExprParser::Level10, Token_Plus, Token_Minus>(result, &right);
        if (error == ExprError_None) Combine(result, negative ? Token_Minus : Token_Plus, right);
    }
    return error;
}

ExprErrorType CExprParser::Level10(CExprValue* result)
{
    return Group<&CExprParser::Level11, Token_Asterisk, Token_Slash, Token_Percent>(result);
}

ExprErrorType CExprParser::Level11(CExprValue* result)
{
    if (!IsOneOf<Token_Plus, Token_Minus, Token_BitNOT, Token_BooleanNOT>(Lexer.Current)) return Level12(result);

    const TokenType operation = Lexer.Current.Value.Token;
    Lexer.GetNext();
    const ExprErrorType error = Nested<&CExprParser::Level1>(result);  // all the rest, not just the next operand
    if (error != ExprError_None) return error;
    if (!result->IsInteger()) return ExprError_Type;

    std::int32_t& value = result->Value.Integer;
    if (operation == Token_Minus) value = Apply(Token_Minus, 0, value);
    if (operation == Token_BitNOT) value = ~value;
    if (operation == Token_BooleanNOT) value = value == 0;
    return ExprError_None;
}

ExprErrorType CExprParser::Level12(CExprValue* result)
{
    switch (Lexer.Current.Type) {
        case Type_Integer:
        case Type_String:
            *result = Lexer.Current;
            Lexer.GetNext();
            return ExprError_None;
        case Type_Identifier:
            return Function(result);
        default:
            break;
    }
    if (Lexer.EatToken(Token_DollarSign)) return Symbol(result);
    if (!Lexer.EatToken(Token_LeftParen)) return ExprError_Syntax;

    const ExprErrorType error = Nested<&CExprParser::Level1>(result);
    if (error != ExprError_None) return error;
    return Lexer.EatToken(Token_RightParen) ? ExprError_None : ExprError_Syntax;
}

ExprErrorType CExprParser::Symbol(CExprValue* result)
{
    if (!pSymbolTable || !Lexer.Current.IsIdentifier()) return ExprError_Variable;
    const CSymbol* pSymbol = pSymbolTable->Lookup(Lexer.Current.Value.pszIdentifier);
    if (!pSymbol) return ExprError_Variable;
    *result = pSymbol->Value;
    Lexer.GetNext();
    return ExprError_None;
}

ExprErrorType CExprParser::Function(CExprValue* result)
{
    const CExprFunction* pFunction = pFunctionList;
    while (pFunction->pszName && strcasecmp(pFunction->pszName, Lexer.Current.Value.pszIdentifier) != 0) pFunction++;
    if (!pFunction->pszName) return ExprError_Syntax;
    Lexer.GetNext();
    return pFunction->pfnCallback(Lexer, *this, result, pFunction->Context, Context);
}

int EvaluateIntegerExpression(const char* text, long* result, CSymbolTable* symbols, CExprFunction* functions,
                              void* context)
{
    *result = 0;
    CExprLexer lexer(text);
    lexer.GetNext();
    CExprParser parser(lexer, symbols, functions, context);

    CExprValue value;
    const ExprErrorType error = parser.Parse(&value);
    if (error != ExprError_None) return error;
    if (!lexer.IsEOF()) return ExprError_Syntax;
    if (!value.IsInteger()) return ExprError_Type;
    *result = value.Value.Integer;
    return ExprError_None;
}
