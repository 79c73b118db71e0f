#include "tools/authoring/explain.h"

#include <cstddef>
#include <vector>

#include "expr.h"

namespace
{

struct Level
{
    std::vector<std::pair<TokenType, const char*>> Operators;
};

// Binary operators from the lowest precedence to the highest.
const std::vector<Level>& Levels()
{
    static const std::vector<Level> levels = {
        {{{Token_BooleanOR, "||"}}},
        {{{Token_BooleanAND, "&&"}}},
        {{{Token_BitOR, "|"}}},
        {{{Token_BitXOR, "^"}}},
        {{{Token_BitAND, "&"}}},
        {{{Token_Equal, "=="}, {Token_NotEqual, "!="}}},
        {{{Token_LessThan, "<"},
          {Token_LessThanOrEqual, "<="},
          {Token_GreaterThan, ">"},
          {Token_GreaterThanOrEqual, ">="}}},
        {{{Token_LeftShift, "<<"}, {Token_RightShift, ">>"}}},
        {{{Token_Plus, "+"}, {Token_Minus, "-"}}},
        {{{Token_Asterisk, "*"}, {Token_Slash, "/"}, {Token_Percent, "%"}}},
    };
    return levels;
}

// Reads an expression as the evaluator does, and writes it down instead.
class CExplainer
{
  public:
    explicit CExplainer(const char* text) : m_Lexer(text) { m_Lexer.GetNext(); }

    std::string Whole()
    {
        const std::string text = Nested();
        return m_bValid && m_Lexer.IsEOF() ? text : "";
    }

  private:
    std::string SyntaxError()
    {
        m_bValid = false;
        return "";
    }

    const char* TakeOperator(std::size_t level)
    {
        for (const auto& entry : Levels()[level].Operators)
            if (m_Lexer.EatToken(entry.first)) return entry.second;
        return nullptr;
    }

    std::string Nested()
    {
        if (m_Nesting > CExprParser::MaxNesting) return SyntaxError();
        m_Nesting++;
        std::string text = Binary(0);
        m_Nesting--;
        return text;
    }

    // A chain of one level's operators groups to the right: its parentheses close together.
    std::string Binary(std::size_t level)
    {
        if (level == Levels().size()) return Unary();
        std::string text;
        std::string closing;
        for (;;) {
            const std::string operand = Binary(level + 1);
            const char* pszOperator = m_bValid ? TakeOperator(level) : nullptr;
            if (!pszOperator) return text.append(operand).append(closing);
            text.append("(").append(operand).append(" ").append(pszOperator).append(" ");
            closing += ")";
        }
    }

    std::string Unary()
    {
        static const std::pair<TokenType, const char*> operators[] = {
            {Token_Plus, "+"}, {Token_Minus, "-"}, {Token_BitNOT, "~"}, {Token_BooleanNOT, "!"}};
        for (const auto& entry : operators)
            if (m_Lexer.EatToken(entry.first)) return std::string("(") + entry.second + Nested() + ")";
        return Primary();
    }

    std::string Primary()
    {
        const CExprValue token = m_Lexer.Current;
        if (!token.IsEOF()) m_Lexer.GetNext();
        if (token.IsInteger()) return std::to_string(static_cast<unsigned>(token.Value.Integer));
        if (token.IsString()) return std::string("\"") + token.Value.pszString + "\"";
        if (token.IsIdentifier()) return token.Value.pszIdentifier + Arguments();
        if (token.IsToken(Token_LeftParen)) {
            const std::string inner = Nested();
            return m_bValid && m_Lexer.EatToken(Token_RightParen) ? inner : SyntaxError();
        }
        if (token.IsToken(Token_DollarSign) && m_Lexer.Current.IsIdentifier()) {
            const std::string name = m_Lexer.Current.Value.pszIdentifier;
            m_Lexer.GetNext();
            return "$" + name;
        }
        return SyntaxError();
    }

    std::string Arguments()
    {
        if (!m_Lexer.EatToken(Token_LeftParen)) return SyntaxError();
        std::string text = "(" + Nested();
        for (;;) {
            if (!m_bValid || m_Lexer.EatToken(Token_RightParen)) return text + ")";
            const bool comma = m_Lexer.EatToken(Token_Comma);
            if (!comma && !m_Lexer.EatToken(Token_Colon)) return SyntaxError();
            text += (comma ? ", " : ":") + Nested();
        }
    }

    CExprLexer m_Lexer;
    bool m_bValid = true;
    int m_Nesting = 0;
};

}  // namespace

std::string ExplainExpression(const char* text)
{
    return CExplainer(text).Whole();
}
