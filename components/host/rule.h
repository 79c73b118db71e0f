// Applicability rules: integer expressions over the server's hardware.
#pragma once

#include <vector>

#include "chif.h"
#include "expr.h"
#include "zalph/str.h"

struct RuleResult
{
    ExprErrorType Error;
    long Value;  // 0 after an error
    int Place;   // of the token at which an error was found: bytes from the start
};

// Defines what a rule may ask about the server: $RomMajor, $RomMinor, $PlatformId, $Blade (0 or 1), and of the
// management processor $Generation, $MoxMajor, $MoxMinor. What can't be read is 0.
void DefineServerSymbols(CSymbolTable& symbols, const CChannelInterface& channel);

// The functions of a rule, as a table for the evaluator. They read through the channel; a null channel makes them fail.
//   MEMID, CPLD, XPLD (index [, low [: high]])         bits of a register byte
//   GPI (number)                                       a general-purpose input
//   I2C (bus, address, register [, low [: high]])      bits of a register byte of an I2C device
//   PRESENT (bus, address)                             1 where an I2C device answers, 0 where none does
std::vector<CExprFunction> RuleFunctions(CChannelInterface* channel);

// Evaluates a rule with a table of functions; the other one with those of a rule. symbols may be null.
RuleResult EvaluateRule(const char* text, CSymbolTable* symbols, CExprFunction* functions);
RuleResult EvaluateRule(const char* text, CSymbolTable* symbols, CChannelInterface* channel);

// "syntax error" and the like.
const char* RuleErrorName(ExprErrorType error);

// The rule as far as a sentence has room for it.
CStr ShownRule(const CStr& rule);

// A sentence for the user that names the rule, the error and its place.
CStr DescribeRuleError(const char* subject, const CStr& rule, const RuleResult& result);
