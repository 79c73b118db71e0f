// mkpackage: fills in the templates of a package's files.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "sim/images/crc.h"
#include "support/files.h"
#include "support/output.h"

namespace
{

void Replace(std::string& text, const std::string& find, const std::string& replacement)
{
    for (std::size_t i = text.find(find); i != std::string::npos; i = text.find(find, i + replacement.size()))
        text.replace(i, find.size(), replacement);
}

std::string Checksum(const std::string& file)
{
    const std::string bytes = ReadWholeFile(file);
    char szCrc[9];
    std::snprintf(szCrc, sizeof szCrc, "%08X", static_cast<unsigned>(sim::Crc32(bytes.data(), bytes.size())));
    return szCrc;
}

int Make(int argc, char** argv)
{
    CLI::App app("Fills in the templates of a package's files.");
    app.set_version_flag("--version", "mkpackage " FLASHLIB_VERSION);
    std::string image;
    std::vector<std::pair<std::string, std::string>> values;
    std::vector<std::pair<std::string, std::string>> files;
    app.add_option("--image", image, "The package's image: its checksum is @CRC32@")->required();
    app.add_option("--set", values, "NAME VALUE: what @NAME@ stands for");
    app.add_option("--fill", files, "TEMPLATE FILE: the template, and the file to write")->required();
    CLI11_PARSE(app, argc, argv);

    try {
        values.emplace_back("CRC32", Checksum(image));
        for (const auto& file : files) {
            std::string text = ReadWholeFile(file.first);
            for (const auto& value : values) Replace(text, "@" + value.first + "@", value.second);
            WriteWholeFile(file.second, text);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "mkpackage: %s\n", error.what());
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    return EndOutput("mkpackage", Make(argc, argv), 1);
}
