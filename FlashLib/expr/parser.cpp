#include <strings.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "expr.h"

namespace
{

// Wrapping 32-bit arithmetic.
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
            return static_cast<std::int32_t>(a << (b & 31));  // kept: shift-count
        case Token_RightShift:
            return left >> (b & 31);
        case Token_Plus:
            return static_cast<std::int32_t>(a + b);
        case Token_Minus:
            return static_cast<std::int32_t>(a - b);
        case Token_Asterisk:
            return static_cast<std::int32_t>(a * b);
        case Token_Slash:
            return left / right;  // kept: unchecked-divisor. NOLINT(clang-analyzer-core.DivideZero)
        default:
            return left % right;  // NOLINT(clang-analyzer-core.DivideZero)
    }
}

// True when the token is one of these.
template <TokenType... Tokens>
bool IsOneOf(const CExprValue& token)
{
    return token.IsToken() && ((token.Value.Token == Tokens) || ...);
}

// A chain of one level: each operand with the operator behind it, all but the last operand. The first few links need
// no allocation.
class CChainLinks
{
  public:
    CChainLinks() : m_pLinks(m_First), m_nCount(0), m_nRoom(FirstRoom) {}
    CChainLinks(const CChainLinks&) = delete;
    CChainLinks& operator=(const CChainLinks&) = delete;
    ~CChainLinks()
    {
        if (m_pLinks != m_First) std::free(m_pLinks);
    }

    // Returns false when there is no memory.
    bool Add(std::int32_t operand, TokenType operation)
    {
        if (m_nCount == m_nRoom && !Grow()) return false;
        m_pLinks[m_nCount++] = {operand, operation};
        return true;
    }

    // Applies the operators to the last operand's value, the last operator first.
    std::int32_t Fold(std::int32_t value) const
    {
        for (std::size_t i = m_nCount; i-- > 0;) value = Apply(m_pLinks[i].Operation, m_pLinks[i].Operand, value);
        return value;
    }

  private:
    struct Link
    {
        std::int32_t Operand;
        TokenType Operation;
    };
    static constexpr std::size_t FirstRoom = 4;

    bool Grow();

    Link m_First[FirstRoom];
    Link* m_pLinks;
    std::size_t m_nCount;
    std::size_t m_nRoom;
};

bool CChainLinks::Grow()
{
    if (m_nRoom > SIZE_MAX / sizeof(Link) / 2) return false;
    void* pOld = m_pLinks == m_First ? nullptr : m_pLinks;
    Link* pNew = static_cast<Link*>(std::realloc(pOld, 2 * m_nRoom * sizeof(Link)));
    if (!pNew) return false;
    if (!pOld) std::memcpy(pNew, m_First, sizeof m_First);
    m_pLinks = pNew;
    m_nRoom *= 2;
    return true;
}

}  // namespace

CExprParser::CExprParser(CExprLexer& lexer, CSymbolTable* symbols, CExprFunction* functions, void* context)
    : Lexer(lexer), pSymbolTable(symbols), pFunctionList(functions), Context(context), m_nNesting(0)
{
}

ExprErrorType CExprParser::Parse(CExprValue* result)
{
    result->Clear();
    return Lexer.IsEOF() ? ExprError_Empty : Nested(result);
}

ExprErrorType CExprParser::Nested(CExprValue* result)
{
    if (m_nNesting > MaxNesting) return ExprError_Syntax;  // kept: nesting-limit
    m_nNesting++;
    const ExprErrorType error = Level1(result);
    m_nNesting--;
    return error;
}

template <CExprParser::LEVEL Operand, TokenType... Operators>
ExprErrorType CExprParser::BinaryLevel(CExprValue* result)
{
    const ExprErrorType error = (this->*Operand)(result);
    if (error != ExprError_None || !IsOneOf<Operators...>(Lexer.Current)) return error;
    return Chain(result, Operand, IsOneOf<Operators...>);
}

// Continues a chain behind its first operand, which result holds: evaluates further operands for as long as an operator
// of the level follows, and only then applies the operators. An operand is checked when the token behind its operator
// is read. On an error result still holds the first operand.
ExprErrorType CExprParser::Chain(CExprValue* result, LEVEL operand, bool (*isOperator)(const CExprValue& token))
{
    CChainLinks links;
    CExprValue right;
    const CExprValue* pLeft = result;
    do {
        const TokenType operation = Lexer.Current.Value.Token;
        Lexer.GetNext();
        if (!pLeft->IsInteger()) return ExprError_Type;
        if (!links.Add(pLeft->Value.Integer, operation)) return ExprError_Runtime;
        right.Clear();
        const ExprErrorType error = (this->*operand)(&right);
        if (error != ExprError_None) return error;
        pLeft = &right;
    } while (isOperator(Lexer.Current));  // kept: both-sides-evaluated
    if (!right.IsInteger()) return ExprError_Type;
    result->Value.Integer = links.Fold(right.Value.Integer);  // kept: right-grouping
    return ExprError_None;
}

ExprErrorType CExprParser::Level1(CExprValue* result)
{
    return BinaryLevel<&CExprParser::Level2, Token_BooleanOR>(result);
}

ExprErrorType CExprParser::Level2(CExprValue* result)
{
    return BinaryLevel<&CExprParser::Level3, Token_BooleanAND>(result);
}

ExprErrorType CExprParser::Level3(CExprValue* result)
{
    return BinaryLevel<&CExprParser::Level4, Token_BitOR>(result);
}

ExprErrorType CExprParser::Level4(CExprValue* result)
{
    return BinaryLevel<&CExprParser::Level5, Token_BitXOR>(result);
}

ExprErrorType CExprParser::Level5(CExprValue* result)
{
    return BinaryLevel<&CExprParser::Level6, Token_BitAND>(result);
}

ExprErrorType CExprParser::Level6(CExprValue* result)
{
    return BinaryLevel<&CExprParser::Level7, Token_Equal, Token_NotEqual>(result);
}

ExprErrorType CExprParser::Level7(CExprValue* result)
{
    return BinaryLevel<&CExprParser::Level8, Token_LessThan, Token_LessThanOrEqual, Token_GreaterThan,
                       Token_GreaterThanOrEqual>(result);
}

ExprErrorType CExprParser::Level8(CExprValue* result)
{
    return BinaryLevel<&CExprParser::Level9, Token_LeftShift, Token_RightShift>(result);
}

ExprErrorType CExprParser::Level9(CExprValue* result)
{
    return BinaryLevel<&CExprParser::Level10, Token_Plus, Token_Minus>(result);
}

ExprErrorType CExprParser::Level10(CExprValue* result)
{
    return BinaryLevel<&CExprParser::Level11, Token_Asterisk, Token_Slash, Token_Percent>(result);
}

ExprErrorType CExprParser::Level11(CExprValue* result)
{
    if (!IsOneOf<Token_Plus, Token_Minus, Token_BitNOT, Token_BooleanNOT>(Lexer.Current)) return Level12(result);

    const TokenType operation = Lexer.Current.Value.Token;
    Lexer.GetNext();
    const ExprErrorType error = Nested(result);  // kept: sign-takes-the-rest
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

    const ExprErrorType error = Nested(result);
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
