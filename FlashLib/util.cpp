#include "util.h"

#include <fnmatch.h>

#include <climits>
#include <cstring>
#include <new>

#include "bounded.h"
#include "debug.h"
#include "handles.h"

CStr FileInComponentDir(const CStr& name)
{
    const CStr path = g_InstallLocalDir + "/" + name;
    _DebugPrintf("FileInComponentDir - *2_FileInComponentDir returns [%s]\n", path.GetAnsiString());
    return path;
}

BOOL FindFileInComponentDir(const CStr& pattern, CStr& path)
{
    path.Empty();
    const CDirectory directory(opendir(g_InstallLocalDir.GetAnsiString()));
    if (!directory) return FALSE;

    while (const dirent* pEntry = readdir(directory.get())) {
        if (fnmatch(pattern.GetAnsiString(), pEntry->d_name, FNM_CASEFOLD) == 0) {
            path = FileInComponentDir(pEntry->d_name);
            break;
        }
    }
    return !path.IsEmpty();
}

BOOL ReadFileIntoMemory(const char* path, void*& buffer, int& size)
{
    std::unique_ptr<char[]> data;
    {
        const CFile file(std::fopen(path, "rb"));
        if (!file || std::fseek(file.get(), 0, SEEK_END) != 0) return FALSE;
        const long position = std::ftell(file.get());
        size = static_cast<int>(position);
        if (position < 0 || position > INT_MAX || std::fseek(file.get(), 0, SEEK_SET) != 0) return FALSE;

        const std::size_t length = static_cast<std::size_t>(position);
        data.reset(new (std::nothrow) char[length]);
        buffer = data.get();  // kept: short-file-buffer (after FALSE it points to released memory)
        if (!data || std::fread(data.get(), 1, length, file.get()) != length) return FALSE;
    }
    buffer = data.release();
    _DebugPrintf("Utility ReadFileIntoMemory: FileName [%s] -i Filesize[%d]\n", path, size);
    return TRUE;
}

void ReplaceStr(char* line, const char* find, const char* replacement)
{
    char szResult[256] = "";
    const char* pRest = line;
    while (const char* pMatch = std::strstr(pRest, find)) {
        BoundedAppend("ReplaceStr", szResult, sizeof szResult, pRest, static_cast<std::size_t>(pMatch - pRest));
        BoundedAppend("ReplaceStr", szResult, sizeof szResult, replacement, std::strlen(replacement));
        pRest = pMatch + std::strlen(find);
    }
    BoundedAppend("ReplaceStr", szResult, sizeof szResult, pRest, std::strlen(pRest));
    std::strcpy(line, szResult);
}
