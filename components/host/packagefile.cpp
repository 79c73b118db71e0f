#include "packagefile.h"

#include <sys/stat.h>

CStr CheckPackageFile(const CStr& path, long long maxSize, const char* limit)
{
    struct stat file = {};
    if (stat(path.GetAnsiString(), &file) != 0) return "";
    if (!S_ISREG(file.st_mode)) return " is no regular file.";
    if (file.st_size <= maxSize) return "";
    CStr problem;
    problem.Format(" has %lld bytes, more than the %lld that %s.", static_cast<long long>(file.st_size), maxSize,
                   limit);
    return problem;
}
