#include "util.h"

#include <dirent.h>
#include <fnmatch.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <new>

#include "bounded.h"
#include "debug.h"

CStr FileInComponentDir(const CStr& name)
{
    const CStr path = g_InstallLocalDir + "/" + name;
    _DebugPrintf("FileInComponentDir - *2_FileInComponentDir returns [%s]\n", path.GetAnsiString());
    return path;
}

BOOL FindFileInComponentDir(const CStr& pattern, CStr& path)
{
    path.Empty();
    DIR* pDirectory = opendir(g_InstallLocalDir.GetAnsiString());
    if (!pDirectory) return FALSE;

    while (const dirent* pEntry = readdir(pDirectory)) {
        if (fnmatch(pattern.GetAnsiString(), pEntry->d_name, FNM_CASEFOLD) == 0) {
            path = FileInComponentDir(pEntry->d_name);
            break;
        }
    }
    closedir(pDirectory);
    return !path.IsEmpty();
}

BOOL ReadFileIntoMemory(const char* path, void*& buffer, int& size)
{
    FILE* pFile = std::fopen(path, "rb");
    if (!pFile) return FALSE;

    long position = -1;
    const bool seekable = std::fseek(pFile, 0, SEEK_END) == 0;
    if (seekable) {
        position = std::ftell(pFile);
        size = static_cast<int>(position);
    }
    if (position < 0 || position > INT_MAX || std::fseek(pFile, 0, SEEK_SET) != 0) {
        std::fclose(pFile);
        return FALSE;
    }

    const std::size_t length = static_cast<std::size_t>(position);
    char* pData = new (std::nothrow) char[length];
    buffer = pData;
    if (!pData) {
        std::fclose(pFile);
        return FALSE;
    }
    const bool complete = std::fread(pData, 1, length, pFile) == length;
    std::fclose(pFile);
    if (!complete) {
        delete[] pData;  // buffer keeps pointing at it on purpose: after FALSE it must not be used
        return FALSE;
    }
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
