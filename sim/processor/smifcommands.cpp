#include "sim/processor/smifcommands.h"

namespace sim
{

namespace
{

#define COMMAND(name)         \
    {                         \
        SMIFCMD_##name, #name \
    }

const struct
{
    WORD Code;
    const char* Name;
} Commands[] = {
    COMMAND(GET_STATUS),     COMMAND(MOXFLASH_COMMAND), COMMAND(I2C_TRANSACTION),   COMMAND(IO_ACCESS),
    COMMAND(DEVICE_FLASH),   COMMAND(DEVICE_CONTROL),   COMMAND(DEVICE_CONTROL_EX), COMMAND(HOST_RESET),
    COMMAND(GET_TMBLN_INFO), COMMAND(PS_INFO),          COMMAND(GET_POWERPIC_INFO), COMMAND(GET_NVME_BACKPLANE_INFO),
};

}  // namespace

const char* FindCommandName(WORD code)
{
    for (const auto& command : Commands)
        if (command.Code == code) return command.Name;
    return "?";
}

WORD FindCommandCode(const std::string& name)
{
    for (const auto& command : Commands)
        if (command.Name == name) return command.Code;
    return 0;
}

}  // namespace sim
