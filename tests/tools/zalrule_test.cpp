#include <algorithm>
#include <random>

#include "expr.h"
#include "tests/support.h"
#include "tools/authoring/explain.h"

namespace
{

// Writes a random expression of that depth.
std::string RandomExpression(std::mt19937& random, int depth)
{
    static const char* const operators[] = {"||", "&&", "|",  "^",  "&",  "==", "!=", "<",
                                            "<=", ">",  ">=", "<<", ">>", "+",  "-",  "*"};
    const auto below = [&](unsigned limit) { return random() % limit; };
    if (depth == 0) return below(4) == 0 ? "$x" : std::to_string(below(100));
    switch (below(5)) {
        case 0:
            return std::string(1, "+-~!"[below(4)]) + RandomExpression(random, depth - 1);
        case 1:
            return "(" + RandomExpression(random, depth - 1) + ")";
        default:
            return RandomExpression(random, depth - 1) + " " + operators[below(16)] + " " +
                   RandomExpression(random, depth - 1);
    }
}

long Evaluate(const std::string& text)
{
    CExprFunction functions[] = {{nullptr, nullptr, nullptr}};
    CSymbolTable symbols;
    symbols.DefineIntegerSymbol("x", -7);
    long value = 0;
    EXPECT_EQ(ExprError_None, EvaluateIntegerExpression(text.c_str(), &value, &symbols, functions, nullptr)) << text;
    return value;
}

std::size_t Count(const std::string& text, char c)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), c));
}

int Zalrule(const std::string& arguments, std::string& output)
{
    return RunCommand(std::string(ZALRULE) + " " + arguments, output);
}

}  // namespace

TEST(Explain, GroupsAsTheEvaluatorDoes)
{
    const std::pair<const char*, const char*> cases[] = {
        {"10 - 3 - 2", "(10 - (3 - 2))"},
        {"-1 + 2", "(-(1 + 2))"},
        {"!0 && 0", "(!(0 && 0))"},
        {"1 + 2 * 3 == 7 || $x", "(((1 + (2 * 3)) == 7) || $x)"},
        {"CPLD(3, 4:7) == 2", "(CPLD(3, 4:7) == 2)"},
        {"0x10", "16"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.second, ExplainExpression(c.first));
    for (const char* text : {"", "1 +", "(1", "1 2", "$", "f", "f(1", "08"})
        EXPECT_EQ("", ExplainExpression(text)) << text;
    // As deep as the evaluator goes, and no deeper.
    const auto deep = [](std::size_t depth) { return std::string(depth, '(') + "1" + std::string(depth, ')'); };
    EXPECT_EQ("1", ExplainExpression(deep(CExprParser::MaxNesting).c_str()));
    EXPECT_EQ("", ExplainExpression(deep(CExprParser::MaxNesting + 1).c_str()));
    std::string chain = "1";
    for (int i = 0; i < 20000; i++) chain += "-1";
    EXPECT_EQ(20000u, Count(ExplainExpression(chain.c_str()), '('));
}

TEST(Explain, KeepsTheValueOfRandomExpressions)
{
    std::mt19937 random(1);
    for (int i = 0; i < 2000; i++) {
        const std::string text = RandomExpression(random, 4);
        ASSERT_EQ(Evaluate(text), Evaluate(ExplainExpression(text.c_str()))) << text;
    }
}

TEST(Zalrule, PrintsTheValueOrTheErrorWithItsPlace)
{
    std::string output;
    EXPECT_EQ(0, Zalrule("--explain -D a=0x35 -D RomMajor=-2 '($a & 0xF0) >> 4 == 3 && $rommajor + 1'", output));
    EXPECT_EQ("(((($a & 240) >> 4) == 3) && ($rommajor + 1))\n1 (0x00000001)\n", output);
    EXPECT_EQ(0, Zalrule("'1 - 2'", output));
    EXPECT_EQ("-1 (0xFFFFFFFF)\n", output);
    EXPECT_EQ(1, Zalrule("'1 + $nothing'", output));
    EXPECT_EQ("1 + $nothing\n     ^\nundefined name\n", output);
    EXPECT_EQ(1, Zalrule("'1 + '", output));
    EXPECT_EQ("1 + \n    ^\nsyntax error\n", output);
    EXPECT_EQ(2, Zalrule("-D a 1", output));
    UseServer(RackServer(R"({"management_processor": null})"));
    EXPECT_EQ(1, Zalrule("--trace --server " + ServerFolder().string() + " 'GPI(3)'", output));
    EXPECT_NE(std::string::npos, output.find("GPI(3): hardware can't be read\n")) << output;
    EXPECT_EQ(1, Zalrule("--trace --server " + ServerFolder().string() + " 'PRESENT(1, 0x50)'", output));
    UseServer(RackServer());
    EXPECT_EQ(0, Zalrule("--server " + ServerFolder().string() + " '$RomMajor * 100 + $RomMinor'", output));
    EXPECT_NE(std::string::npos, output.find("230 (0x000000E6)\n")) << output;

    // The bytes of the device are "RK740 SIM7400001"; the power controller on bus 3 answers other reads than this one.
    const std::pair<const char*, const char*> cases[] = {
        {"I2C(1, 0x50, 1)", "75 (0x0000004B)"},
        {"I2C(1, 0x50, 1, 6)", "1 (0x00000001)"},
        {"I2C(1, 0x50, 1, 1:3)", "5 (0x00000005)"},
        {"PRESENT(1, 0x50) + 2 * PRESENT(3, 0x30) + 4 * PRESENT(2, 0x50)", "3 (0x00000003)"},
        {"I2C(2, 0x50, 1)", "hardware can't be read"},
        {"I2C(256, 0x50, 1)", "argument out of range"},
        {"PRESENT(1, 0x10000)", "argument out of range"},
        {"I2C(1, 0x50)", "syntax error"},
        {"PRESENT(1, 0x50, 1)", "syntax error"},
        {"PRESENT(1)", "syntax error"},
    };
    for (const auto& c : cases) {
        Zalrule("--server " + ServerFolder().string() + " '" + c.first + "'", output);
        EXPECT_EQ(std::string(c.second) + "\n", output.substr(output.rfind('\n', output.size() - 2) + 1)) << c.first;
    }
}
