// The flash-table driver library of the simulated server. What is not here is answered by the library that the
// installer is linked with.
#include "zalftbl.h"

#include <fcntl.h>

int cruFd = -1;

int OpenCruDriver()
{
    if (cruFd < 0) cruFd = open("/dev/qvrcru", O_RDWR);
    return cruFd;
}
