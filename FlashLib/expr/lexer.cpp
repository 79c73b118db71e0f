#include <cctype>
#include <cstring>

#include "expr.h"

namespace
{

// Spares most characters the call.
bool IsSpace(char c)
{
    return (c < '!' || c > '~') && std::isspace(static_cast<unsigned char>(c)) != 0;
}

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool IsLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

const DWORD NoDigit = 16;

DWORD DigitValue(char c)
{
    if (c >= '0' && c <= '9') return static_cast<DWORD>(c - '0');
    if (c >= 'A' && c <= 'F') return static_cast<DWORD>(c - 'A') + 10;
    if (c >= 'a' && c <= 'f') return static_cast<DWORD>(c - 'a') + 10;
    return NoDigit;
}

}  // namespace

CExprLexer::CExprLexer(const char* text) : pszExpression(text) {}

CExprLexer::~CExprLexer() = default;

BOOL CExprLexer::IsEOF() const
{
    return Current.IsEOF();
}

BOOL CExprLexer::EatToken(TokenType token)
{
    if (!Current.IsToken(token)) return FALSE;
    GetNext();
    return TRUE;
}

void CExprLexer::GetNext()
{
    Current.Clear();
    if (pszExpression)
        while (IsSpace(*pszExpression)) pszExpression++;

    if (!pszExpression || *pszExpression == '\0')
        Current.Type = Type_EOF;
    else if (IsLetter(*pszExpression))
        ReadIdentifier();
    else if (IsDigit(*pszExpression))
        ReadNumber();
    else if (*pszExpression == '"')
        ReadString();
    else
        ReadOperator();
}

void CExprLexer::SetToken(TokenType token, int length)
{
    Current.Type = Type_Token;
    Current.Value.Token = token;
    pszExpression += length;
}

void CExprLexer::SetText(ValueType type, const char* start, const char* end)
{
    Current.Type = type;
    Current.Value.pszString = strndup(start, static_cast<std::size_t>(end - start));
}

void CExprLexer::ReadOperator()
{
    const char next = pszExpression[1];
    switch (*pszExpression) {
        case '(':
            return SetToken(Token_LeftParen, 1);
        case ')':
            return SetToken(Token_RightParen, 1);
        case '[':
            return SetToken(Token_LeftBracket, 1);
        case ']':
            return SetToken(Token_RightBracket, 1);
        case ':':
            return SetToken(Token_Colon, 1);
        case ',':
            return SetToken(Token_Comma, 1);
        case '$':
            return SetToken(Token_DollarSign, 1);
        case '+':
            return SetToken(Token_Plus, 1);
        case '-':
            return SetToken(Token_Minus, 1);
        case '*':
            return SetToken(Token_Asterisk, 1);
        case '/':
            return SetToken(Token_Slash, 1);
        case '%':
            return SetToken(Token_Percent, 1);
        case '^':
            return SetToken(Token_BitXOR, 1);
        case '~':
            return SetToken(Token_BitNOT, 1);
        case '=':
            return next == '=' ? SetToken(Token_Equal, 2) : SetToken(Token_Assignment, 1);
        case '!':
            return next == '=' ? SetToken(Token_NotEqual, 2) : SetToken(Token_BooleanNOT, 1);
        case '&':
            return next == '&' ? SetToken(Token_BooleanAND, 2) : SetToken(Token_BitAND, 1);
        case '|':
            return next == '|' ? SetToken(Token_BooleanOR, 2) : SetToken(Token_BitOR, 1);
        case '<':
            if (next == '<') return SetToken(Token_LeftShift, 2);
            return next == '=' ? SetToken(Token_LessThanOrEqual, 2) : SetToken(Token_LessThan, 1);
        case '>':
            if (next == '>') return SetToken(Token_RightShift, 2);
            return next == '=' ? SetToken(Token_GreaterThanOrEqual, 2) : SetToken(Token_GreaterThan, 1);
        default:
            return;  // Type_Unknown
    }
}

// Up to the next double quote or the end of the text.
void CExprLexer::ReadString()
{
    const char* pStart = pszExpression + 1;
    const char* pEnd = pStart + std::strcspn(pStart, "\"");  // kept: open-string
    SetText(Type_String, pStart, pEnd);
    pszExpression = pEnd;
    while (*pszExpression == '"') pszExpression++;  // kept: adjacent-quotes
}

void CExprLexer::ReadIdentifier()
{
    const char* pStart = pszExpression;
    while (IsLetter(*pszExpression) || IsDigit(*pszExpression)) pszExpression++;
    SetText(Type_Identifier, pStart, pszExpression);
}

// A digit that the base does not have is an error; a prefix without digits is 0. Too large a number wraps.
// kept: prefix-alone
void CExprLexer::ReadNumber()
{
    DWORD base = 10;
    if (*pszExpression == '0') {
        pszExpression++;
        base = 8;  // kept: octal-numbers
        if (*pszExpression == 'b' || *pszExpression == 'B') base = 2;
        if (*pszExpression == 'x' || *pszExpression == 'X') base = 16;
        if (base != 8) pszExpression++;
    }

    DWORD value = 0;
    for (DWORD digit; (digit = DigitValue(*pszExpression)) != NoDigit; pszExpression++) {
        if (digit >= base) return;     // Type_Unknown. kept: digit-of-another-base
        value = value * base + digit;  // kept: number-wraps
    }
    Current.Type = Type_Integer;
    Current.Value.Integer = static_cast<std::int32_t>(value);
}
