// The flash-table driver library on a Linux guest: hands everything to the node of the ROM utility driver there.
#include "zalftbl.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "flashtable.h"
#include "guestdriver.h"
#include "romdriver.h"

int cruFd = -1;

// This library stands before the C library where symbols are looked for, so what FlashLib asks of the node comes here.
extern "C" FLASHLIB_API int ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void* pArgument = va_arg(arguments, void*);
    va_end(arguments);
    if (fd == cruFd && request == RomDriverRequest_ReadMemory) request = RenumberedReadMemory;
    return static_cast<int>(syscall(SYS_ioctl, fd, request, pArgument));
}

namespace
{

const std::size_t PieceSize = 65536;  // bytes that one call moves

// Moves bytes one piece after the other: such a node has no offsets.
template <typename Byte>
bool InPieces(ssize_t (*move)(int, Byte*, std::size_t), Byte* bytes, std::size_t size)
{
    char* pBytes = static_cast<char*>(const_cast<void*>(bytes));
    for (std::size_t offset = 0; offset < size; offset += PieceSize) {
        const std::size_t length = std::min(PieceSize, size - offset);
        if (move(cruFd, pBytes + offset, length) != static_cast<ssize_t>(length)) return false;
    }
    return true;
}

// Asks for an operation; false when it could not be done.
bool Ask(GuestOperation operation, GUEST_TABLE_REQUEST& request)
{
    request.Operation = operation;
    return ioctl(cruFd, GuestRequest_FlashTable, &request) == 0 && request.Done != 0;
}

// The same on bytes.
bool Ask(GuestOperation operation, GUEST_TABLE_REQUEST& request, const void* bytes, std::size_t size)
{
    request.Size = static_cast<DWORD>(size);
    return InPieces<const void>(write, bytes, size) && Ask(operation, request);
}

int Read(GuestOperation operation, void* bytes)
{
    GUEST_TABLE_REQUEST request = {};
    return Ask(operation, request) && InPieces<void>(read, bytes, request.Size) ? 0 : -1;
}

}  // namespace

int OpenCruDriver()
{
    if (cruFd < 0) cruFd = open("/dev/qvrcru", O_RDWR | O_CLOEXEC);
    return cruFd;
}

int InitFlashTableDriver()
{
    GUEST_TABLE_REQUEST request = {};
    OpenCruDriver();
    return Ask(GuestOperation_Initialize, request) ? 0 : -1;
}

int SelectFlashTable(const char* pszName)
{
    GUEST_TABLE_REQUEST request = {};
    return Ask(GuestOperation_Select, request, pszName, std::strlen(pszName)) ? 0 : -1;
}

int QueryFlashTable(TABLE_QUERY_RESULT* pResult)
{
    GUEST_TABLE_REQUEST request = {};
    const bool asked = Ask(GuestOperation_Query, request);
    *pResult = asked ? request.Result : TABLE_QUERY_RESULT();
    return asked ? 0 : -1;
}

int ReadFlashHeader(ZALFLSH_HEADER* pHeader)
{
    return Read(GuestOperation_ReadHeader, pHeader);
}

int ReadFlashTable(void* pTable)
{
    return Read(GuestOperation_ReadTable, pTable);
}

int WriteFlashTable(const void* pTable, int Size)
{
    GUEST_TABLE_REQUEST request = {};
    return Ask(GuestOperation_WriteTable, request, pTable, static_cast<std::size_t>(Size)) ? 0 : -1;
}

int ExecuteFlashTable(TABLE_EXEC_REQUEST* pRequest)
{
    const DWORD unanswered = 0xFFFFFFFF;
    GUEST_TABLE_REQUEST request = {};
    request.Execute = *pRequest;
    request.Size = pRequest->BufferSize;
    const bool takes = pRequest->TableNumber == FlashTable_Program && pRequest->pBuffer;
    bool done = takes ? Ask(GuestOperation_Execute, request, pRequest->pBuffer, pRequest->BufferSize)
                      : Ask(GuestOperation_Execute, request);
    pRequest->BytesReturned = std::min(request.Execute.BytesReturned, pRequest->BufferSize);
    if (done && pRequest->pBuffer) done = InPieces<void>(read, pRequest->pBuffer, pRequest->BytesReturned);
    pRequest->Status = done ? request.Execute.Status : unanswered;
    return done ? 0 : -1;
}

int CorruptNVRAM()
{
    GUEST_TABLE_REQUEST request = {};
    return Ask(GuestOperation_CorruptNvram, request) ? 0 : -1;
}
