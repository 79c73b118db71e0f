// Prints how many rules a second of processor time are parsed and evaluated: here, and by muParser's integer parser,
// which is given the text anew each time too.

#include <muParserInt.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>

#include "expr.h"
#include "util.h"

CStr g_InstallLocalDir;

namespace
{

constexpr const char* Rule = "($a & 0xF0) >> 4 == 3 && ($b | 1) < 200";
constexpr const char* MuParserRule = "(a & 0xF0) >> 4 == 3 && (b | 1) < 200";
constexpr long A = 0x35;
constexpr long B = 7;
constexpr long Expected = 1;
constexpr int Rounds = 15;

struct Contestant
{
    const char* Name;
    std::function<long()> Evaluate;
    int Count;  // evaluations a round
    double BestSeconds;
    bool Right;
};

void Measure(Contestant& contestant)
{
    const std::clock_t start = std::clock();
    for (int i = 0; i < contestant.Count; i++) contestant.Right = contestant.Evaluate() == Expected && contestant.Right;
    const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    contestant.BestSeconds = std::min(contestant.BestSeconds, seconds);
}

}  // namespace

int main()
{
    CSymbolTable symbols;
    symbols.DefineIntegerSymbol("a", A);
    symbols.DefineIntegerSymbol("b", B);
    CExprFunction functions[] = {{}};

    double a = A;
    double b = B;
    mu::ParserInt parser;
    parser.DefineVar("a", &a);
    parser.DefineVar("b", &b);

    Contestant contestants[] = {
        {"muParser",
         [&] {
             parser.SetExpr(MuParserRule);
             return static_cast<long>(parser.Eval());
         },
         20000, 1e9, true},
        {"EvaluateIntegerExpression",
         [&] {
             long value = 0;
             EvaluateIntegerExpression(Rule, &value, &symbols, functions, nullptr);
             return value;
         },
         500000, 1e9, true},
    };
    for (int round = 0; round < Rounds; round++)  // taking turns: what disturbs the machine disturbs both
        for (Contestant& contestant : contestants) Measure(contestant);

    std::printf("%s, %zu-bit, best of %d\n", Rule, 8 * sizeof(void*), Rounds);
    for (const Contestant& contestant : contestants) {
        std::printf("%-26s %8.0f a second\n", contestant.Name, contestant.Count / contestant.BestSeconds);
        if (!contestant.Right) {
            std::printf("%s: wrong value\n", contestant.Name);
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}
