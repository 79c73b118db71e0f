// An installer's command line, an argument each line; the same text as one line for the tokenizer, with its first line
// as the syntax.
#include "zalph/commandline.h"
#include "component.h"
#include "fuzz/fuzz.h"
#include "util.h"

const CStepBound StepBound = {10000, 1000};

namespace
{

// The line goes to the debug log, where a message of 1024 bytes ends the process; this is stated, and so kept out of
// reach.
const std::size_t MaxLine = 900;

class CInstaller : public CComponent
{
  public:
    const CDiscoveryInfo& GetDiscovery() const { return m_Discovery; }
};

void ParseArguments(CInput input)
{
    std::vector<std::vector<char>> arguments;
    std::vector<char*> argv;
    for (std::size_t length = 0; !input.IsEmpty(); argv.push_back(arguments.back().data())) {
        arguments.push_back(input.Text('\n'));
        length += arguments.back().size() + 2;  // with quotes
        if (length > MaxLine) break;
    }
    CInstaller installer;
    installer.ParseCmdLine(static_cast<int>(argv.size()), argv.data());
    REQUIRE(!installer.GetDiscovery().bEnabled || !installer.GetDiscovery().sXmlFileName.IsEmpty());
}

}  // namespace

void Fuzz(CInput& input)
{
    ParseArguments(input);

    const std::vector<char> syntax = CInput(input).Text('\n');
    std::vector<char> text = input.Text();
    GetCmdLineToken(text.data());
    const CCommandLine line(text.data());
    for (int i = 0; i < line.GetNumArgs() && i < 10; i++) {
        const CStr argument = line.GetArg(i);
        REQUIRE(line.FindArg(argument) >= 0 && line.FindArg(argument) <= i);
        REQUIRE(line.FindArgOption(line.GetArgOption(i)) <= i);
        REQUIRE(line.HasArgParam(i) || line.GetArgParam(i).IsEmpty());
    }
    line.VerifySyntax(syntax.data());
}
