// mkdevice: makes a firmware image of a device behind the management processor.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "sim/images/deviceimage.h"
#include "support/files.h"
#include "support/output.h"

namespace
{

int Make(int argc, char** argv)
{
    CLI::App app("Makes a firmware image of a device behind the management processor.");
    app.set_version_flag("--version", "mkdevice " FLASHLIB_VERSION);
    std::string handler;
    std::string version;
    std::string date;
    std::string image;
    std::size_t size = 65536;
    app.add_option("--handler", handler, "device flash handler, e.g. TMBR")->required();
    app.add_option("--firmware-version", version, "e.g. 1.2.3")->required();
    app.add_option("--date", date, "e.g. 03/15/2021");
    app.add_option("--size", size, "bytes");
    app.add_option("--image", image, "the image to write")->required();
    CLI11_PARSE(app, argc, argv);

    try {
        const std::vector<std::uint8_t> bytes =
            sim::BuildDeviceImage(handler, sim::ParseFirmwareVersion(version, date), size);
        WriteWholeFile(image, AsText(bytes));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "mkdevice: %s\n", error.what());
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    return EndOutput("mkdevice", Make(argc, argv), 1);
}
