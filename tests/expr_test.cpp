#include "expr.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>

#include "support.h"

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

std::string Repeat(const std::string& text, int count)
{
    std::string result;
    while (count-- > 0) result += text;
    return result;
}

const std::map<std::string, int> Levels = {{"||", 1}, {"&&", 2}, {"|", 3},  {"^", 4},  {"&", 5},  {"==", 6},
                                           {"!=", 6}, {"<", 7},  {"<=", 7}, {">", 7},  {">=", 7}, {"<<", 8},
                                           {">>", 8}, {"+", 9},  {"-", 9},  {"*", 10}, {"%", 10}};

// A chain of numbers and operators from next on, with parentheses around every operation.
std::string Grouped(const std::vector<std::string>& chain, std::size_t& next, int level)
{
    if (level > 10) return chain[next++];
    const std::string left = Grouped(chain, next, level + 1);
    if (next == chain.size() || Levels.at(chain[next]) != level) return left;
    const std::string operation = chain[next++];
    return "(" + left + operation + Grouped(chain, next, level) + ")";
}

}  // namespace

TEST_F(Expr, CutsTextIntoTokens)
{
    const char* const cases[][2] = {
        {" \t\r\n\v\f", ""},
        {"()[]:,$=+-*/%&|^~", "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 "},
        {"&&||!<<>>==!=<<=>>=", "18 19 20 21 22 23 24 21 8 22 8 "},
        {"< <= > >= &&& ||| === !== <<<", "25 26 27 28 18 14 19 15 23 8 24 8 21 25 "},
        {"a=<b _9Z", "a 8 25 b _9Z "},
        {"0 10 010 0b101 0B1 0x1F 0Xaf", "=0 =10 =8 =5 =1 =31 =175 "},
        {"0xg 7g 0b+0x", "=0 g =7 g =0 9 =0 "},
        {"4294967295 4294967296 0x123456789", "=-1 =0 =591751049 "},
        {"\"a b\" \"\"c\"d\"\"\"e \"a\\\"\t\"open", "'a b' '' c 'd' e 'a\\' 'open' "},
        {"12ab+", "?ab+"},
        {"1 09", "=1 ?9"},
        {"0b102", "?2"},
        {"0bF", "?F"},
    };
    for (const auto& c : cases) EXPECT_EQ(c[1], Tokens(c[0])) << c[0];
    EXPECT_EQ("", Tokens(nullptr));
}

TEST_F(Expr, AnswersEveryByteInEveryStateAndEveryTruncation)
{
    for (const char* pszBefore : {"", "a ", "a", "1", "0", "0x", "0b1", "\"a", "\"a\"", "<", "&", "$", "bits(", "1+"})
        for (int byte = 1; byte < 256; byte++) {
            const std::string text = pszBefore + std::string(1, static_cast<char>(byte));
            Evaluate(text);
            const bool known =
                byte < 128 && (std::isalnum(byte) || std::strchr("()[]:,$=+-*/%&|^~!<>_\" \t\n\v\f\r", byte));
            const bool apart = *pszBefore == '\0' || std::strchr(" \"<&$(+", text[text.size() - 2]);
            if (apart) {
                EXPECT_EQ(known, Tokens(text.c_str()).find('?') == std::string::npos) << text;
            }
        }

    std::string answers;
    for (std::size_t length : {0, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14})
        answers += Evaluate(std::string("bits(1,2:7)+$x").substr(0, length));
    EXPECT_EQ("!1!2!1!2!1!2!1!245!2!552", answers);
}

TEST_F(Expr, EvaluatesByItsOwnGrammar)
{
    const char* const cases[][2] = {
        {"10 - 3 - 2", "9"},
        {"100 / 10 / 2", "20"},
        {"-1 + 2", "-3"},
        {"!0 && 0", "1"},
        {"2 * -3 + 4", "-14"},
        {"~0 == 1", "-1"},
        {"(+ -1) + 2", "1"},
        {"-0x80000000", "-2147483648"},
        {"0x7FFFFFFF + 1", "-2147483648"},
        {"65537 * 65537", "131073"},
        {"1 << 33", "2"},
        {"1 << (-1)", "-2147483648"},
        {"(-8) >> 1", "-4"},
        {"(-7) / 2", "-3"},
        {"(-7) % 2", "-1"},
        {"(-1) < 0", "1"},
        {"2 || 0", "1"},
        {"2 && 4", "1"},
        {"$X * $ x", "49"},
    };
    for (const auto& c : cases) EXPECT_EQ(c[1], Evaluate(c[0])) << c[0];
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

TEST_F(Expr, GroupsEveryLevelToTheRight)
{
    std::srand(1);
    for (int i = 0; i < 20000; i++) {
        std::vector<std::string> chain = {"5"};
        for (int length = std::rand() % 8; length >= 0; length--) {
            chain.push_back(std::next(Levels.begin(), std::rand() % static_cast<int>(Levels.size()))->first);
            // The divisor of a remainder is a number of its own, and not 0.
            chain.push_back(std::to_string(std::rand() >> std::rand() % 31 | 1));
            if (chain[chain.size() - 2] == "%") chain.insert(chain.end(), {"+", "0"});
        }
        std::string text;
        for (const std::string& part : chain) text += part;
        std::size_t next = 0;
        EXPECT_EQ(Evaluate(Grouped(chain, next, 1)), Evaluate(text)) << text;
    }
}

TEST_F(Expr, NeedsNoStackForLongChainsAndEndsAtTheDocumentedNesting)
{
    EXPECT_EQ("1", Evaluate("1" + Repeat("-1", 1000000)));
    EXPECT_EQ("1333332", Evaluate("0" + Repeat("-1-4+1", 333333)));
    for (const char* pszTerm : {"||0", "&&1", "|0", "^0", "&1"})
        EXPECT_EQ("1", Evaluate("1" + Repeat(pszTerm, 1000000))) << pszTerm;

    const int limit = CExprParser::MaxNesting;
    EXPECT_EQ("7", Evaluate(Repeat("(1*", limit) + "7" + Repeat(")", limit) + Repeat("+(0)", limit)));
    EXPECT_EQ("3", Evaluate("3" + Repeat("*1", limit)));
    for (const std::string opening : {"(", "-", "bits(", "1*("})
        for (int depth : {limit + 1, 100000})
            EXPECT_EQ("!2", Evaluate(Repeat(opening, depth) + "1" + Repeat(")", depth))) << opening;
    for (const char* pszTerm : {"*1", "<<0", "<1", "==1"}) EXPECT_EQ("!2", Evaluate("1" + Repeat(pszTerm, 100000)));
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
    EXPECT_EQ("180", Evaluate("bits(255)"));
    EXPECT_EQ("13", Evaluate("bits(1, 2:5)"));
    EXPECT_EQ("1", Evaluate("bits(1, 7)"));
    EXPECT_EQ("1", Evaluate("bits(1, 5:5)"));
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
    m_Symbols.DefineIntegerSymbol("FLAG", 1);
    m_Symbols.DefineIntegerSymbol("Flag", -2);
    EXPECT_EQ("-2", Evaluate("$flag"));
    EXPECT_STREQ("FLAG", m_Symbols.pFirst->pNext->pszName);
    m_Symbols.DefineStringSymbol("flag", "text");
    EXPECT_STREQ("text", m_Symbols.Lookup("FLAG")->Value.Value.pszString);
    m_Symbols.Clear();
    EXPECT_EQ(nullptr, m_Symbols.Lookup("flag"));
}

TEST_F(Expr, ValuesOwnTheirTexts)
{
    CExprValue value;
    value.SetStringPointer(strdup("abc"));
    CExprValue copy(value);
    value.SetInteger(-5);
    EXPECT_TRUE(copy.IsString());
    EXPECT_STREQ("abc", copy.Value.pszString);
    copy = value;
    const CExprValue& same = copy;
    copy = same;
    EXPECT_EQ(-5, copy.Value.Integer);

    CExprLexer lexer("abc )");
    lexer.GetNext();
    copy = lexer.Current;
    lexer.GetNext();
    EXPECT_TRUE(copy.IsIdentifier());
    EXPECT_STREQ("abc", copy.Value.pszIdentifier);
    EXPECT_FALSE(lexer.EatToken(Token_LeftParen));
    EXPECT_TRUE(lexer.EatToken(Token_RightParen));
    copy = lexer.Current;
    EXPECT_TRUE(copy.IsEOF());
    EXPECT_EQ(nullptr, copy.Value.pSymbol);
}

using ExprDeathTest = Expr;

TEST_F(ExprDeathTest, FaultsOnABadDivisor)
{
    for (const char* pszText : {"1 / 0", "1 % 0", "0x80000000 / ~0", "0x80000000 % ~0"})
        EXPECT_DEATH(Evaluate(std::string(pszText)), "") << pszText;
}
