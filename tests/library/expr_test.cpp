#include "expr.h"

#include <cctype>
#include <cstring>
#include <sstream>

#include "tests/support.h"

namespace
{

// Its value is the bits of 0xB4 that its arguments name; *context counts its calls.
ExprErrorType Bits(CExprLexer& lexer, CExprParser& parser, CExprValue* result, void* context, void* parserContext)
{
    int index = 0;
    int low = 0;
    int high = 0;
    const ExprErrorType error = GetByteAndBits(lexer, parser, index, low, high);
    if (error != ExprError_None) return error;
    if (!context) return ExprError_Runtime;
    ++*static_cast<int*>(context);
    *static_cast<int*>(parserContext) = index;
    result->SetInteger((0xB4 >> low) & ((1 << (high - low + 1)) - 1));
    return ExprError_None;
}

class Expr : public testing::Test
{
  public:
    Expr()
    {
        m_Symbols.DefineIntegerSymbol("x", 7);
        m_Symbols.DefineStringSymbol("Name", "P70");
        m_Symbols.Add("undefined");
    }

    // The value, or the error's number behind a '!'.
    std::string Evaluate(const char* text, CSymbolTable* symbols)
    {
        CExprFunction functions[] = {
            {"bits", Bits, &m_nCalls}, {"Absent", Bits, nullptr}, {"BITS", nullptr, nullptr}, {}};
        long result = 99;
        const int error = EvaluateIntegerExpression(text, &result, symbols, functions, &m_nIndex);
        EXPECT_TRUE(error == ExprError_None || result == 0) << text;
        return error == ExprError_None ? std::to_string(result) : "!" + std::to_string(error);
    }
    std::string Evaluate(const std::string& text) { return Evaluate(text.c_str(), &m_Symbols); }

    CSymbolTable m_Symbols;
    int m_nCalls = 0;
    int m_nIndex = -1;
};

// Operators by number, integers behind '=', strings in quotes; what is no token as '?' with the rest of the text.
std::string Tokens(const char* text)
{
    std::string tokens;
    CExprLexer lexer(text);
    for (lexer.GetNext(); !lexer.IsEOF(); lexer.GetNext()) {
        const CExprValue& token = lexer.Current;
        if (token.Type == Type_Unknown) return tokens + "?" + lexer.pszExpression;
        if (token.IsToken()) tokens += std::to_string(token.Value.Token) + " ";
        if (token.IsInteger()) tokens += "=" + std::to_string(token.Value.Integer) + " ";
        if (token.IsString()) tokens += "'" + std::string(token.Value.pszString) + "' ";
        if (token.IsIdentifier()) tokens += std::string(token.Value.pszIdentifier) + " ";
    }
    return tokens;
}

// What a text of that byte alone is cut into.
std::string TokenOf(int byte)
{
    const std::string operators = "()[]:,$=+-*/%&|^~  !    < >";  // by token; blank: has two characters
    const std::string text(1, static_cast<char>(byte));
    if (byte == 0 || std::isspace(byte)) return "";
    if (std::isdigit(byte)) return "=" + text + " ";
    if (std::isalpha(byte) || byte == '_') return text + " ";
    if (byte == '"') return "'' ";
    const std::size_t token = operators.find(text);
    return token == std::string::npos ? "?" + text : std::to_string(token + 1) + " ";
}

// What digits of that value and base and the byte behind them are cut into.
std::string NumberBefore(int byte, int base, int value)
{
    const std::string text(1, static_cast<char>(byte));
    if (!std::isxdigit(byte)) return "=" + std::to_string(value) + " " + TokenOf(byte);
    const int digit = std::stoi(text, nullptr, 16);
    return digit < base ? "=" + std::to_string(value * base + digit) + " " : "?" + text;
}

// The value of tokens of which no two make an expression.
std::string AnswerTo(const std::string& tokens)
{
    if (tokens.empty()) return "!1";
    if (tokens[0] == '\'') return "!3";
    if (tokens == "7 ") return "!5";
    const bool isValue = tokens[0] == '=' && tokens.find(' ') == tokens.size() - 1;
    return isValue ? tokens.substr(1, tokens.size() - 2) : "!2";
}

}  // namespace

TEST_F(Expr, CutsTextIntoTokens)
{
    const char* const cases[][2] = {
        {" \t\r\n\v\f", ""},
        {"&&||!<<>>==!=<<=>>=", "18 19 20 21 22 23 24 21 8 22 8 "},
        {"< <= > >= &&& ||| === !== <<<", "25 26 27 28 18 14 19 15 23 8 24 8 21 25 "},
        {"a=<b _9Z", "a 8 25 b _9Z "},
        {"0 10 010 0b101 0B1 0x1F 0Xaf", "=0 =10 =8 =5 =1 =31 =175 "},
        {"0xg 7g 0b+0x", "=0 g =7 g =0 9 =0 "},
        {"4294967295 4294967296 0x123456789", "=-1 =0 =591751049 "},
        {"\"a b\" \"\"c\"d\"\"\"e \"a\\\"\t\"open", "'a b' '' c 'd' e 'a\\' 'open' "},
        {"1 0b102", "=1 ?2"},
    };
    for (const auto& c : cases) EXPECT_EQ(c[1], Tokens(c[0])) << c[0];
    EXPECT_EQ("", Tokens(nullptr));
}

TEST_F(Expr, AnswersEveryByteInEveryState)
{
    for (int byte = 0; byte < 256; byte++) {
        const std::string text(1, static_cast<char>(byte));
        const bool isWord = std::isalnum(byte) || byte == '_';
        const bool isPrefix = text.find_first_of("bBxX") == 0;
        const bool isEnd = byte == 0 || byte == '"';
        const std::pair<std::string, std::string> states[] = {
            {"", TokenOf(byte)},
            {"a", isWord ? "a" + text + " " : "a " + TokenOf(byte)},
            {"1", NumberBefore(byte, 10, 1)},
            {"0", isPrefix ? "=0 " : NumberBefore(byte, 8, 0)},
            {"0x", NumberBefore(byte, 16, 0)},
            {"0b1", NumberBefore(byte, 2, 1)},
            {"\"a", isEnd ? "'a' " : "'a" + text + "' "},
        };
        for (const auto& [before, tokens] : states) {
            EXPECT_EQ(tokens, Tokens((before + text).c_str())) << before << " and byte " << byte;
            EXPECT_EQ(AnswerTo(tokens), Evaluate(before + text)) << before << " and byte " << byte;
        }
    }
}

TEST_F(Expr, AnswersEveryTruncation)
{
    std::string answers;
    for (std::size_t length : {0, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14})
        answers += Evaluate(std::string("bits(1,2:7)+$x").substr(0, length));
    EXPECT_EQ("!1!2!1!2!1!2!1!245!2!552", answers);
}

TEST_F(Expr, EvaluatesByItsOwnGrammar)
{
    std::istringstream cases(
        // Every level groups to the right.
        "10 - 3 - 2 is 9; 10 - 4 + 3 - 2 - 1 is 4; 100 / 10 / 2 is 20; 100 % 7 * 3 is 16; 256 >> 2 << 1 is 16;"
        "1 < 3 < 2 is 0; 5 == 6 == 0 is 0; 3 != 3 == 3 is 1;"
        // From the outermost level in: every pair has another value the other way round.
        "1 || 0 && 0 is 1; 0 && 1 | 2 is 0; 4 | 1 ^ 5 is 4; 4 ^ 6 & 3 is 6; 4 & 4 == 4 is 0; 5 == 3 < 4 is 0;"
        "1 <= 4 >> 2 is 1; 1 << 1 + 2 is 8; 2 * 3 + 1 is 7;"
        // A sign takes all the rest.
        "-1 + 2 is -3; 2 * -3 + 4 is -14; !0 && 0 is 1; ~0 == 1 is -1; + 5 is 5;"
        // 32 bits that wrap.
        "-0x80000000 is -2147483648; 0x7FFFFFFF + 1 is -2147483648; 65537 * 65537 is 131073; 1 << 33 is 2;"
        "1 << (-1) is -2147483648; (-8) >> 1 is -4; (-7) / 2 is -3; (-7) % 2 is -1;"
        "(-1) < 0 is 1; 3 > 3 is 0; 3 >= 3 is 1; 2 || 0 is 1; 2 && 4 is 1; $X * $ x is 49");
    for (std::string text; std::getline(cases, text, ';');) {
        const std::size_t end = text.find(" is ");
        EXPECT_EQ(text.substr(end + 4), Evaluate(text.substr(0, end))) << text;
    }
}

TEST_F(Expr, TellsErrorsApart)
{
    for (const char* pszText : {"", " "}) EXPECT_EQ("!1", Evaluate(pszText));
    for (const char* pszText : {"()", "1 2", "1 +", "(1", "1)", "1 = 1", "09", "x", "nobody(1)", "1 + ) + \"a\""})
        EXPECT_EQ("!2", Evaluate(pszText)) << pszText;
    for (const char* pszText : {"$name", "$undefined", "\"a\"", "\"a\" + )", "1 + \"a\" + )", "1 * \"a\" * )",
                                "1 | 2 * \"a\"", "1 == \"a\"", "-\"a\""})
        EXPECT_EQ("!3", Evaluate(pszText)) << pszText;
    for (const char* pszText : {"$y", "$", "$1", "$(x)"}) EXPECT_EQ("!5", Evaluate(pszText)) << pszText;
    EXPECT_EQ("!5", Evaluate("$x", nullptr));
    EXPECT_EQ("!1", Evaluate(nullptr, nullptr));
}

TEST_F(Expr, TakesChainsOfAnyLengthAndEndsAtTheDocumentedNesting)
{
    EXPECT_EQ("1333332", Evaluate("0" + Repeat(333333, "-1-4+1")));
    for (const char* pszTerm : {"||0", "&&1", "|0", "^0", "&1", "==1", ">0", "<<0", "-0", "*1"})
        EXPECT_EQ("1", Evaluate("1" + Repeat(1000000, pszTerm))) << pszTerm;

    const int limit = 1000;
    EXPECT_EQ("1",
              Evaluate(Repeat(limit, "0||1&&0|0^1&1==0<1<<0+1*(") + "1" + Repeat(limit, ")") + Repeat(limit, "*(1)")));
    for (const std::string opening : {"(", "-", "bits(", "1*("})
        for (int depth : {limit + 1, 100000})
            EXPECT_EQ("!2", Evaluate(Repeat(depth, opening) + "1" + Repeat(depth, ")"))) << opening;
}

TEST_F(Expr, CombinesNothingBeforeAllOperandsAreEvaluated)
{
    EXPECT_EQ("!6", Evaluate("1 / 0 / absent(1)"));
    CExprLexer lexer("9 - 2 - $name");
    lexer.GetNext();
    CExprValue value;
    EXPECT_EQ(ExprError_Type, CExprParser(lexer, &m_Symbols, nullptr, nullptr).Parse(&value));
    EXPECT_EQ(9, value.Value.Integer);
}

TEST_F(Expr, CallsFunctionsOnBothSides)
{
    EXPECT_EQ("0", Evaluate("0 && Bits(1)"));
    EXPECT_EQ("1", Evaluate("1 || BITS(2)"));
    EXPECT_EQ(2, m_nCalls);
    EXPECT_EQ(2, m_nIndex);
    EXPECT_EQ("!6", Evaluate("1 || absent(1)"));
}

TEST_F(Expr, ReadsAByteIndexAndBits)
{
    EXPECT_EQ("180 13 1 1", Evaluate("bits(255)") + " " + Evaluate("bits(1, 2:5)") + " " + Evaluate("bits(1, 7)") +
                                " " + Evaluate("bits(1, 5:5)"));
    EXPECT_EQ("45", Evaluate("bits( 3 - 1 - 1, 1 + 1 : 7 )"));
    EXPECT_EQ("13", Evaluate("bits(bits(0, 2:5) - bits(0, 4), 2:5)"));
    EXPECT_EQ(12, m_nIndex);
    for (const char* pszText : {"", "()", "(1:2)", "(1,2,3)", "(1,2:3:4)", "[1]", "(1"})
        EXPECT_EQ("!2", Evaluate(std::string("bits") + pszText)) << pszText;
    for (const char* pszText : {"(\"a\")", "(1,\"a\")", "(1,1:\"a\")"})
        EXPECT_EQ("!3", Evaluate(std::string("bits") + pszText)) << pszText;
    for (const char* pszText : {"(256", "(-1)", "(1,8)", "(1,-1)", "(1,3:2)", "(1,3:8)"})
        EXPECT_EQ("!4", Evaluate(std::string("bits") + pszText)) << pszText;
}

TEST_F(Expr, NewerDefinitionsHideOlderOnes)
{
    m_Symbols.DefineIntegerSymbol("FLAG", -2);
    EXPECT_EQ("-2", Evaluate("$flag"));
    m_Symbols.DefineStringSymbol("flag", "text");
    EXPECT_STREQ("text", m_Symbols.Lookup("FLAG")->Value.Value.pszString);
    EXPECT_STREQ("FLAG", m_Symbols.pFirst->pNext->pszName);
    m_Symbols.Clear();
    EXPECT_EQ(nullptr, m_Symbols.Lookup("flag"));
}

TEST_F(Expr, ValuesOwnTheirTexts)
{
    CExprValue value;
    value.SetStringPointer(strdup("abc"));
    CExprValue copy(value);
    value.SetInteger(-5);
    EXPECT_STREQ("abc", copy.Value.pszString);

    CExprLexer lexer("abc )");
    lexer.GetNext();
    copy = lexer.Current;
    lexer.GetNext();
    const CExprValue& same = copy;
    copy = same;
    EXPECT_TRUE(copy.IsIdentifier());
    EXPECT_STREQ("abc", copy.Value.pszIdentifier);
    EXPECT_TRUE(!lexer.EatToken(Token_LeftParen) && lexer.EatToken(Token_RightParen) && lexer.IsEOF());
}

using ExprDeathTest = Expr;

TEST_F(ExprDeathTest, FaultsOnABadDivisor)
{
    for (const char* pszText : {"1 / 0", "1 % 0", "0x80000000 / ~0", "0x80000000 % ~0"})
        EXPECT_DEATH(Evaluate(std::string(pszText)), "") << pszText;
}
