// Applicability rules: integer expressions over the server's hardware.
#pragma once

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

// Evaluates a rule with the functions MEMID, CPLD, XPLD (index [, low [: high]]) and GPI (bit), which read through the
// channel; a null channel makes them fail. symbols may be null.
RuleResult EvaluateRule(const char* text, CSymbolTable* symbols, CChannelInterface* channel);

// The same with functions of one's own.
RuleResult EvaluateRule(const char* text, CSymbolTable* symbols, CExprFunction* functions);

// "syntax error" and the like.
const char* RuleErrorName(ExprErrorType error);

// The rule as far as a sentence has room for it.
CStr ShownRule(const CStr& rule);

// A sentence for the user that names the rule, the error and its place.
CStr DescribeRuleError(const char* subject, const CStr& rule, const RuleResult& result);
