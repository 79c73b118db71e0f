// mkrom: makes a system ROM image and the package description that states its checksum.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "crc.h"
#include "romimage.h"

namespace
{

void Replace(std::string& text, const std::string& find, const std::string& replacement)
{
    for (std::size_t i = text.find(find); i != std::string::npos; i = text.find(find, i + replacement.size()))
        text.replace(i, find.size(), replacement);
}

void Write(const std::string& file, const char* bytes, std::size_t size)
{
    std::ofstream stream(file, std::ios::binary);
    if (!stream.write(bytes, static_cast<std::streamsize>(size)).flush())
        throw std::runtime_error("can't write " + file);
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("Makes a system ROM image and the package description that states its checksum.");
    sim::RomDescription rom = {"", "", "", "SYSTEM ROM"};
    std::size_t size = 1048576;
    std::string image;
    std::string package;
    std::string packageTemplate;
    app.add_option("--family", rom.Family)->required();
    app.add_option("--version", rom.Version, "e.g. 2.40")->required();
    app.add_option("--date", rom.Date, "e.g. 03/15/2021")->required();
    app.add_option("--size", size, "bytes")->check(CLI::Range(sim::BiosAreaSize, std::size_t{1} << 28));
    app.add_option("--image", image, "the image to write")->required();
    app.add_option("--template", packageTemplate, "package description with @FAMILY@, @VERSION@, @DATE@, @CRC32@");
    app.add_option("--package", package, "the package description to write");
    CLI11_PARSE(app, argc, argv);

    try {
        const std::vector<std::uint8_t> bytes = sim::BuildRomImage(rom, size);
        Write(image, reinterpret_cast<const char*>(bytes.data()), bytes.size());
        if (package.empty()) return 0;

        std::ifstream stream(packageTemplate, std::ios::binary);
        if (!stream) throw std::runtime_error("can't read " + packageTemplate);
        std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
        char crc[9];
        std::snprintf(crc, sizeof crc, "%08X", static_cast<unsigned>(sim::Crc32(bytes.data(), bytes.size())));
        Replace(text, "@FAMILY@", rom.Family);
        Replace(text, "@VERSION@", rom.Version);
        Replace(text, "@DATE@", rom.Date);
        Replace(text, "@CRC32@", crc);
        Write(package, text.data(), text.size());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "mkrom: %s\n", error.what());
        return 1;
    }
    return 0;
}
