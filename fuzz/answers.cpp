// What an installer tells zaldeploy: a discovery document, or lines of a report. The first byte says which.
#include "fuzz/fuzz.h"
#include "support/printable.h"
#include "tools/deploy/discoveryfile.h"
#include "tools/deploy/report.h"

const CStepBound StepBound = {100, 0};

namespace
{

// Whatever reaches a terminal can't steer it.
void RequirePrintable(const Discovery& found)
{
    for (const std::string& text : {found.Name, found.Device, found.Current, found.Offered, found.TakesEffect})
        REQUIRE(Printable(text) == text);
}

void ReadLines(CInput& input)
{
    CReport report;
    while (!input.IsEmpty()) report.Read(input.Text('\n').data());
    RequirePrintable(report.Properties());
    REQUIRE(!report.LastProgress() || report.LastProgress()->Total > 0);
}

}  // namespace

void Fuzz(CInput& input)
{
    if (input.Byte() % 2) return ReadLines(input);
    Discovery found;
    if (ReadDiscoveryFile(WriteFile("discovery.xml", input.Data(), input.Size()), found).empty())
        RequirePrintable(found);
}
