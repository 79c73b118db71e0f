// Recorded runs of the installers and tools: tests/traces/ holds all that they print, log and do.
#include <filesystem>

#include "tests/support.h"

namespace
{

std::vector<std::string> Names()
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(TRACES))
        if (entry.path().extension() == ".trace") names.push_back(entry.path().stem().string());
    return names;
}

class Trace : public testing::TestWithParam<std::string>
{
};

}  // namespace

TEST_P(Trace, IsWhatRunsNow)
{
    std::string differences;
    EXPECT_EQ(0, RunCommand("BUILD='" BUILD "' '" TRACES "/../../script/traces' --check " + GetParam(), differences))
        << differences;
}

INSTANTIATE_TEST_SUITE_P(All, Trace, testing::ValuesIn(Names()), [](const auto& name) {
    std::string text = name.param;
    for (char& c : text)
        if (c == '-') c = '_';
    return text;
});
