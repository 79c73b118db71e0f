#include "debug.h"

#include <sys/resource.h>

#include <cstdlib>
#include <regex>

#include "tests/support.h"
#include "util.h"

namespace
{

// The log decides about its file once a process: each of these runs in a process of its own.
[[noreturn]] void LogTo(const std::string& file, std::initializer_list<const char*> messages)
{
    setenv("QVFLASHLOG", file.c_str(), 1);
    const char* const close = nullptr;
    for (const char* message : messages)
        if (*message)
            _DebugPrintf("%s", message);
        else
            _DebugPrintf(close);
    std::_Exit(0);  // nothing is flushed here
}

}  // namespace

TEST(DebugLogDeathTest, WritesOneHeaderAndEveryMessageAtOnce)
{
    const std::string file = RunFolder() / "log";
    EXPECT_EXIT(LogTo(file, {"one\n", "", "", "two\n"}), testing::ExitedWithCode(0), "");
    const std::string rule(79, '-');
    const std::regex expected(rule +
                              "\n\n\t\tFirmware Flash Debug Log\n\n\t\t\\w{3} \\w{3} [ \\d]\\d [\\d:]{8} \\d{4}\n\n" +
                              rule + "\n\none\n\ntwo\n");
    EXPECT_TRUE(std::regex_match(ReadFile(file), expected)) << ReadFile(file);

    EXPECT_EXIT(LogTo(file, {"three\n"}), testing::ExitedWithCode(0), "");
    EXPECT_NE(std::string::npos, ReadFile(file).find("two\n" + rule));
}

TEST(DebugLogDeathTest, ComplainsOnceAboutAFileThatCantBeOpened)
{
    EXPECT_EXIT(LogTo("/no/such/folder/log", {"one\n", "two\n"}), testing::ExitedWithCode(0),
                "^Failed to open log file: /no/such/folder/log\n$");
    const auto logByDefault = [] {
        const rlimit none = {};
        setrlimit(RLIMIT_NOFILE, &none);
        unsetenv("QVFLASHLOG");
        _DebugPrintf("one\n");
        std::_Exit(0);
    };
    EXPECT_EXIT(logByDefault(), testing::ExitedWithCode(0), "^Failed to open log file: /var/zal/flash.debug.log\n$");
}

TEST(DebugLogDeathTest, EndsTheProcessWhereALimitIsPassed)
{
    EXPECT_DEATH(LogTo(std::string(4096, 'x'), {"one\n"}), "4096-byte buffer of the debug log's path");
    EXPECT_EXIT(LogTo("/dev/null", {std::string(1023, 'x').c_str()}), testing::ExitedWithCode(0), "");
    EXPECT_DEATH(LogTo("/dev/null", {std::string(1024, 'x').c_str()}), "1024-byte buffer of _DebugPrintf");
}

TEST(ComponentDir, FindsFilesRegardlessOfCase)
{
    CTestFolder folder;
    folder.Write("QXPKG.XML", "");
    g_InstallLocalDir = folder.Path().c_str();
    CLogCapture log;
    CStr path;
    EXPECT_TRUE(FindFileInComponentDir("qx*.xml", path));
    EXPECT_STREQ((folder.Path() / "QXPKG.XML").c_str(), path);
    EXPECT_EQ("FileInComponentDir - *2_FileInComponentDir returns [" + (folder.Path() / "QXPKG.XML").string() + "]\n",
              log.Text());
    EXPECT_FALSE(FindFileInComponentDir("*.rom", path));
    EXPECT_TRUE(path.IsEmpty());

    g_InstallLocalDir = "/no/such/folder";
    path = "old";
    EXPECT_FALSE(FindFileInComponentDir("*", path));
    EXPECT_TRUE(path.IsEmpty());
    g_InstallLocalDir = "/tmp/c/";
    EXPECT_STREQ("/tmp/c//a.xml", FileInComponentDir("a.xml"));
    g_InstallLocalDir = "";
    EXPECT_STREQ("/a.xml", FileInComponentDir("a.xml"));
}

TEST(ComponentDir, ReadsFilesWhole)
{
    CTestFolder folder;
    void* pBuffer = nullptr;
    int size = -1;
    const std::string contents("a\0b\n", 4);
    const std::string file = folder.Write("file", contents);
    CLogCapture log;
    ASSERT_TRUE(ReadFileIntoMemory(file.c_str(), pBuffer, size));
    EXPECT_EQ(contents, std::string(static_cast<char*>(pBuffer), static_cast<std::size_t>(size)));
    EXPECT_EQ("Utility ReadFileIntoMemory: FileName [" + file + "] -i Filesize[4]\n", log.Text());
    delete[] static_cast<char*>(pBuffer);

    ASSERT_TRUE(ReadFileIntoMemory(folder.Write("empty", "").c_str(), pBuffer, size));
    EXPECT_EQ(0, size);
    delete[] static_cast<char*>(pBuffer);

    EXPECT_FALSE(ReadFileIntoMemory((folder.Path() / "missing").c_str(), pBuffer, size));
    EXPECT_FALSE(ReadFileIntoMemory(folder.Path().c_str(), pBuffer, size));
    // Such a file tells the size of a page and holds less. The buffer is released and still pointed to.
    pBuffer = nullptr;
    EXPECT_FALSE(ReadFileIntoMemory("/sys/devices/system/cpu/online", pBuffer, size));
    EXPECT_TRUE(pBuffer && size >= 4096);
}

TEST(ReplaceStrDeathTest, ReplacesEveryOccurrenceOnce)
{
    const auto replace = [](const std::string& line, const char* find, const std::string& replacement) {
        char szLine[256];
        line.copy(szLine, sizeof szLine);
        szLine[line.size()] = '\0';
        ReplaceStr(szLine, find, replacement.c_str());
        return std::string(szLine);
    };
    EXPECT_EQ("a 1 b 1", replace("a %X% b %X%", "%X%", "1"));
    EXPECT_EQ("<%X%>", replace("%X%", "%X%", "<%X%>"));
    EXPECT_EQ("plain", replace("plain", "%X%", "1"));
    EXPECT_EQ(255u, replace("12%X%", "%X%", std::string(253, 'x')).size());
    EXPECT_DEATH(replace("123%X%", "%X%", std::string(253, 'x')), "256-byte buffer of ReplaceStr");
    EXPECT_DEATH(replace(std::string(250, 'x') + "%%", "%%", "123456"), "256-byte buffer of ReplaceStr");
}
