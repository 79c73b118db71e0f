// Makes visible how an expression is evaluated.
#pragma once

#include <string>

// The expression with every operation in parentheses, as the evaluator groups it. Empty where the text is not an
// expression.
std::string ExplainExpression(const char* text);
