// The texts of the channel library's status values.
#include "zalci.h"

namespace
{

// In the order of their values.
const char* const szMessages[] = {
    "Success",
    "No driver is loaded",
    "No device was found",
    "Out of memory",
    "Bad connection",
    "Bad descriptor count",
    "Bad descriptor size",
    "Unable to map the registers",
    "Unable to map the doorbells",
    "Unable to map the device memory",
    "Out of device memory",
    "Bad priority",
    "No more channels",
    "No more connections",
    "No more channel memory",
    "Unable to map host memory",
    "Unable to map the send memory",
    "Unable to map the receive memory",
    "Unable to map the doorbell",
    "Bad object type",
    "The FIFO is full",
    "The FIFO is empty",
    "Partial transfer",
    "The channel is still in use",
    "Access denied",
    "The channel was deleted",
    "No key was specified",
    "Invalid adapter",
    "No channels are pending",
    "Unable to create a signal",
    "Unable to obtain a signal",
    "Not implemented",
    "No more waiters",
    "Unable to wait",
    "Timeout",
    "Interface error",
    "The channel does not respond",
    "Bad calling context",
    "The channel was disconnected",
    "Bad parameter",
    "The connection is still in use",
    "General failure",
    "Command failed",
};
static_assert(sizeof szMessages / sizeof szMessages[0] == ZalCiErrMax + 1, "a text for every status");

}  // namespace

const char* ZalCiStatusMessage(ZALCISTATUS Status)
{
    const bool known = Status >= ZalCiSuccess && Status <= ZalCiErrMax;
    return known ? szMessages[Status] : "Unknown status";
}
