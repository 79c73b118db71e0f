// zalrule: evaluates an applicability rule, and shows how.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "host/rule.h"
#include "support/help.h"
#include "support/output.h"
#include "tools/authoring/explain.h"
#include "tools/simulated.h"
#include "util.h"

CStr g_InstallLocalDir;

namespace
{

const int Exit_Value = 0;
const int Exit_Error = 1;
const int Exit_Usage = 2;

// Calls a hardware function, whose row is the context, and prints its call as it is written, with what it gave.
ExprErrorType Trace(CExprLexer& lexer, CExprParser& parser, CExprValue* result, void* context, void* parserContext)
{
    const auto* pFunction = static_cast<const CExprFunction*>(context);
    const char* pArguments = lexer.pszExpression;  // behind the opening parenthesis
    const char* pEnd = pArguments;
    for (int depth = 1; *pEnd && depth > 0; pEnd++) depth += (*pEnd == '(') - (*pEnd == ')');
    const std::string call = std::string(pFunction->pszName) + "(" + std::string(pArguments, pEnd);
    const ExprErrorType error = pFunction->pfnCallback(lexer, parser, result, pFunction->Context, parserContext);
    if (error == ExprError_None)
        std::printf("%s = %d\n", call.c_str(), static_cast<int>(result->Value.Integer));
    else
        std::printf("%s: %s\n", call.c_str(), RuleErrorName(error));
    return error;
}

RuleResult Evaluate(const std::string& rule, CSymbolTable& symbols, CChannelInterface& channel, bool trace)
{
    if (!trace) return EvaluateRule(rule.c_str(), &symbols, &channel);
    std::vector<CExprFunction> functions = RuleFunctions(&channel);
    std::vector<CExprFunction> traced = functions;
    for (std::size_t i = 0; functions[i].pszName; i++) traced[i] = {functions[i].pszName, Trace, &functions[i]};
    return EvaluateRule(rule.c_str(), &symbols, traced.data());
}

// "name=value"; values in decimal, or with 0x in hexadecimal.
bool Define(CSymbolTable& symbols, const std::string& definition)
{
    const std::size_t equals = definition.find('=');
    if (equals == std::string::npos || equals == 0) return false;
    char* pEnd = nullptr;
    const std::string value = definition.substr(equals + 1);
    const int base = value.find_first_of("xX") == std::string::npos ? 10 : 16;
    const long long number = std::strtoll(value.c_str(), &pEnd, base);
    if (value.empty() || *pEnd != '\0' || number < INT32_MIN || number > UINT32_MAX) return false;
    symbols.DefineIntegerSymbol(definition.substr(0, equals).c_str(), static_cast<std::int32_t>(number));
    return true;
}

int Run(const std::string& rule, const std::vector<std::string>& definitions, bool trace)
{
    CChannelInterface channel;
    CSymbolTable symbols;
    DefineServerSymbols(symbols, channel);
    for (const std::string& definition : definitions) {
        if (!Define(symbols, definition)) {
            std::fprintf(stderr, "zalrule: a symbol is defined as NAME=NUMBER, not %s\n", definition.c_str());
            return Exit_Usage;
        }
    }
    const RuleResult result = Evaluate(rule, symbols, channel, trace);
    if (result.Error != ExprError_None) {
        std::printf("%s\n%*s^\n%s\n", rule.c_str(), result.Place, "", RuleErrorName(result.Error));
        return Exit_Error;
    }
    std::printf("%ld (0x%08X)\n", result.Value, static_cast<unsigned>(result.Value));
    return Exit_Value;
}

int ParseAndRun(int argc, char** argv)
{
    CLI::App app("Evaluates an applicability rule, against this server or a simulated one.");
    app.set_version_flag("--version", "zalrule " FLASHLIB_VERSION);
    app.formatter(std::make_shared<CHelp>());
    app.footer("Example:\n  $ zalrule --server sim/servers/rack --trace 'CPLD(3, 4:7) == 2 && !$Blade'");
    std::string rule;
    std::string server;
    std::vector<std::string> definitions;
    bool trace = false;
    bool explain = false;
    app.add_option("rule", rule, "The expression")->required();
    app.add_option("--server", server, "Folder of a simulated server");
    app.add_option("-D", definitions, "Define $NAME, over what the server tells: NAME=NUMBER")->allow_extra_args(false);
    app.add_flag("--trace", trace, "Print each hardware read");
    app.add_flag("--explain", explain, "Print the expression with all its parentheses, as it is evaluated");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? Exit_Value : Exit_Usage;
    }

    if (!server.empty() && !RunOnServer(server, argv)) return Exit_Usage;
    if (explain) {
        const std::string text = ExplainExpression(rule.c_str());
        if (!text.empty()) std::printf("%s\n", text.c_str());
    }
    return Run(rule, definitions, trace);
}

}  // namespace

int main(int argc, char** argv)
{
    return EndOutput("zalrule", ParseAndRun(argc, argv), Exit_Usage);
}
