// mkrom: makes a system ROM image.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/images/romimage.h"
#include "support/files.h"
#include "support/output.h"

namespace
{

int Make(int argc, char** argv)
{
    CLI::App app("Makes a system ROM image.");
    app.set_version_flag("--version", "mkrom " FLASHLIB_VERSION);
    sim::RomDescription rom = {"", "", "", "SYSTEM ROM"};
    std::size_t size = 1048576;
    std::string image;
    app.add_option("--family", rom.Family, "e.g. P70")->required();
    app.add_option("--firmware-version", rom.Version, "e.g. 2.40")->required();
    app.add_option("--date", rom.Date, "e.g. 03/15/2021")->required();
    app.add_option("--size", size, "bytes")->check(CLI::Range(sim::BiosAreaSize, sim::MaxRomSize));
    app.add_option("--image", image, "the image to write")->required();
    CLI11_PARSE(app, argc, argv);

    try {
        if (!sim::IsRomSize(size)) throw std::runtime_error("a ROM image has a multiple of 65536 bytes");
        const std::vector<std::uint8_t> bytes = sim::BuildRomImage(rom, size);
        WriteWholeFile(image, AsText(bytes));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "mkrom: %s\n", error.what());
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    return EndOutput("mkrom", Make(argc, argv), 1);
}
