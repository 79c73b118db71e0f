#include "expr.h"

#include <csignal>
#include <cstring>

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

    // The value, or the error's name.
    std::string Evaluate(const char* text, CSymbolTable* symbols)
    {
        CExprFunction functions[] = {
            {"bits", Bits, &m_nCalls}, {"Absent", Bits, nullptr}, {"BITS", nullptr, nullptr}, {}};
        static const char* const errors[] = {"None", "Empty", "Syntax", "Type", "Range", "Variable", "Runtime"};
        long result = 99;
        const int error = EvaluateIntegerExpression(text, &result, symbols, functions, &m_nIndex);
        EXPECT_TRUE(error == ExprError_None || result == 0) << text;
        return error == ExprError_None ? std::to_string(result) : errors[error];
    }
    std::string Evaluate(const std::string& text) { return Evaluate(text.c_str(), &m_Symbols); }

    CSymbolTable m_Symbols;
    int m_nCalls = 0;
    int m_nIndex = -1;
};

std::string Tokens(const char* text)
{
    std::string tokens;
    CExprLexer lexer(text);
    for (lexer.GetNext(); !lexer.IsEOF(); lexer.GetNext()) {
        const CExprValue& token = lexer.Current;
        if (token.Type == Type_Unknown) return tokens + " nothing at " + testing::PrintToString(lexer.pszExpression);
        if (token.IsToken()) tokens += " token " + std::to_string(token.Value.Token);
        if (token.IsInteger()) tokens += " integer " + std::to_string(token.Value.Integer);
        if (token.IsString()) tokens += " string " + testing::PrintToString(std::string(token.Value.pszString));
        if (token.IsIdentifier()) tokens += std::string(" name ") + token.Value.pszIdentifier;
    }
    return tokens + " end";
}

}  // namespace

TEST_F(Expr, CutsTextIntoTokens)
{
    CTranscript trace("expr-tokens");
    for (const char* pszText : {" \t\r\n\v\f", "&&||!<<>>==!=<<=>>=", "< <= > >= &&& ||| === !== <<<", "a=<b _9Z",
                                "0 10 010 0b101 0B1 0x1F 0Xaf", "0xg 7g 0b+0x", "4294967295 4294967296 0x123456789",
                                "1 0b102", "\"a b\" \"\"c\"d\"\"\"e \"a\\\"\t\"open"})
        trace(testing::PrintToString(std::string(pszText)), Tokens(pszText));
    EXPECT_EQ(" end", Tokens(nullptr));
}

TEST_F(Expr, AnswersEveryByteInEveryState)
{
    CTranscript trace("expr-bytes");
    for (int byte = 0; byte < 256; byte++) {
        trace("byte ", byte);
        for (const char* pszBefore : {"", "a", "1", "0", "0x", "0b1", "\"a"}) {
            const std::string text = pszBefore + std::string(1, static_cast<char>(byte));
            trace("  behind ", pszBefore, ":", Tokens(text.c_str()), ", is ", Evaluate(text));
        }
    }
}

TEST_F(Expr, EvaluatesByItsOwnGrammar)
{
    CTranscript trace("expr-values");
    for (const char* pszText :
         {// Every level groups to the right.
          "10 - 3 - 2", "10 - 4 + 3 - 2 - 1", "100 / 10 / 2", "100 % 7 * 3", "256 >> 2 << 1", "1 < 3 < 2",
          "5 == 6 == 0", "3 != 3 == 3",
          // From the outermost level in: every pair has another value the other way round.
          "1 || 0 && 0", "0 && 1 | 2", "4 | 1 ^ 5", "4 ^ 6 & 3", "4 & 4 == 4", "5 == 3 < 4", "1 <= 4 >> 2",
          "1 << 1 + 2", "2 * 3 + 1",
          // From the innermost level out: every pair has another value where its two levels are one.
          "1 + 1 << 1", "1 << 2 < 1", "2 < 1 == 0", "0 == 1 & 0", "0 & 1 ^ 1", "1 ^ 1 | 1", "1 | 2 && 0", "0 && 1 || 1",
          // A sign takes all the rest.
          "-1 + 2", "2 * -3 + 4", "!0 && 0", "~0 == 1", "+ 5",
          // 32 bits that wrap.
          "-0x80000000", "0x7FFFFFFF + 1", "65537 * 65537", "1 << 33", "1 << (-1)", "(-8) >> 1", "(-7) / 2", "(-7) % 2",
          "(-1) < 0", "3 > 3", "3 >= 3", "3 >= 4", "4 >= 3", "3 <= 2", "4 != 4", "4 > 3", "3 < 3", "2147483647 > (-1)",
          "(-1) <= 0", "256 >> 33", "7 / (0 - 2)", "7 % (0 - 2)", "2 || 0", "2 && 4", "$X * $ x",
          // Errors.
          "", " ", "()", "1 2", "1 +", "(1", "1)", "1 = 1", "09", "x", "nobody(1)", "1 + ) + \"a\"", "$name",
          "$undefined", "\"a\"", "\"a\" + )", "1 + \"a\" + )", "1 * \"a\" * )", "1 | 2 * \"a\"", "1 == \"a\"", "-\"a\"",
          "$y", "$", "$1", "$(x)",
          // Functions, on both sides of an operator and in each other's arguments; nothing is combined before all
          // operands are evaluated.
          "0 && Bits(1)", "1 || BITS(2)", "1 || absent(1)", "1 / 0 / absent(1)", "bits(255)", "bits(1, 2:5)",
          "bits(1, 7)", "bits(1, 5:5)", "bits( 3 - 1 - 1, 1 + 1 : 7 )", "bits(bits(0, 2:5) - bits(0, 4), 2:5)", "bits",
          "bits()", "bits(1:2)", "bits(1,2,3)", "bits(1,2:3:4)", "bits[1]", "bits(1", "bits(\"a\")", "bits(1,\"a\")",
          "bits(1,1:\"a\")", "bits(256", "bits(-1)", "bits(1,8)", "bits(1,-1)", "bits(1,3:2)", "bits(1,3:8)"}) {
        m_nCalls = 0;
        m_nIndex = -1;
        trace(pszText, " is ", Evaluate(pszText));
        if (m_nCalls > 0) trace("  ", m_nCalls, " calls, the last one with ", m_nIndex);
    }
    const std::string rule = "bits(1,2:7)+$x";
    for (std::size_t length = 0; length <= rule.size(); length++)
        trace(rule.substr(0, length), " is ", Evaluate(rule.substr(0, length)));
    trace("without symbols $x is ", Evaluate("$x", nullptr), ", no text is ", Evaluate(nullptr, nullptr));
    CExprLexer lexer("9 - 2 - $name");
    lexer.GetNext();
    CExprValue value;
    const ExprErrorType error = CExprParser(lexer, &m_Symbols, nullptr, nullptr).Parse(&value);
    trace("9 - 2 - $name is error ", error, " and leaves ", value.Value.Integer);
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
            EXPECT_EQ("Syntax", Evaluate(Repeat(depth, opening) + "1" + Repeat(depth, ")"))) << opening;
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
#ifdef __SANITIZE_ADDRESS__  // which tells it and ends the process
        EXPECT_DEATH(Evaluate(std::string(pszText)), "runtime error: division") << pszText;
#else
        EXPECT_EXIT(Evaluate(std::string(pszText)), testing::KilledBySignal(SIGFPE), "") << pszText;
#endif
}
