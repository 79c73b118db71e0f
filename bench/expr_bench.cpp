// Rules parsed and evaluated, beside muParser's integer parser, which is given the text anew each time too.
#include <muParserInt.h>

#include "bench/compare.h"
#include "bench/measurements.h"
#include "expr.h"

namespace
{

const char* const Rule = "($a & 0xF0) >> 4 == 3 && ($b | 1) < 200";
const char* const MuParserRule = "(a & 0xF0) >> 4 == 3 && (b | 1) < 200";
const int Count = 20000;

// Evaluates Count times; true when the rule holds each time.
template <typename Evaluation>
bool Repeat(Evaluation evaluate)
{
    bool right = true;
    for (int i = 0; i < Count; i++) right = evaluate() == 1 && right;
    return right;
}

}  // namespace

void BenchExpressions()
{
    CSymbolTable symbols;
    symbols.DefineIntegerSymbol("a", 0x35);
    symbols.DefineIntegerSymbol("b", 7);
    CExprFunction functions[] = {{}};
    double a = 0x35;
    double b = 7;
    mu::ParserInt parser;
    parser.DefineVar("a", &a);
    parser.DefineVar("b", &b);

    const auto ours = [&] {
        long value = 0;
        EvaluateIntegerExpression(Rule, &value, &symbols, functions, nullptr);
        return value;
    };
    const auto theirs = [&] {
        parser.SetExpr(MuParserRule);
        return static_cast<long>(parser.Eval());
    };
    Compare("Rule, parsed and evaluated", Count, "rules", 15,
            {{"muParser's integer parser", [&] { return Repeat(theirs); }},
             {"EvaluateIntegerExpression", [&] { return Repeat(ours); }}});
}
