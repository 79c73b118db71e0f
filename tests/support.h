// What all tests use.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/tempfolder.h"

// A folder of files that goes away with the object.
class CTestFolder : public CTempFolder
{
  public:
    CTestFolder() : CTempFolder("flashtest") {}
    // Writes a file into it and returns its path.
    std::string Write(const std::string& name, const std::string& contents) const;
};

// What the debug log has gained since the object was made.
class CLogCapture
{
  public:
    CLogCapture();
    std::string Text() const;
    bool Has(const std::string& text) const { return Text().find(text) != std::string::npos; }

  private:
    std::size_t m_Before;  // bytes
};

// What a test does, line by line; below each line, how far it moved the virtual clock and what it wrote into the debug
// log. It starts half a second from where the seconds change. In the end it is held against
// tests/traces/library/NAME.txt, which FLASHTEST_RECORD in the environment has written anew.
class CTranscript
{
  public:
    explicit CTranscript(const char* pszName);
    ~CTranscript();
    CTranscript(const CTranscript&) = delete;
    CTranscript& operator=(const CTranscript&) = delete;

    // Adds a line made of these parts.
    template <typename... Part>
    void operator()(const Part&... part)
    {
        std::ostringstream line;
        (line << ... << part);
        Add(line.str());
    }

    // Leaves the debug log out from here on, or shows it again.
    void ShowLog(bool show) { m_ShowLog = show; }

    // Leaves out what happened since the last line.
    void Skip();

    // Has a text that differs from run to run written as that name.
    void Rename(const std::string& text, const std::string& name) { m_Renamed.emplace_back(text, name); }

  private:
    void Add(const std::string& line);

    std::filesystem::path m_File;
    std::vector<std::pair<std::string, std::string>> m_Renamed;
    std::string m_Text;
    CLogCapture m_Log;
    bool m_ShowLog = true;
    std::size_t m_Logged = 0;  // bytes of the log that are in the text
    std::int64_t m_Time;       // ns
};

// Bytes as digits, without the zeros behind the first byte that end them.
std::string HexDigits(const std::string& bytes);

// Puts the process on a new server with that server.json, and closes the ROM utility driver.
void UseServer(const std::string& json);

// Starts that server anew: what was flashed now runs.
void RestartServer();

// Its folder.
std::filesystem::path ServerFolder();

// The server.json of a healthy rack server, with members that take the place of its own.
std::string RackServer(const std::string& members = "{}");

// A folder for this run of the test program and the children its death tests start, which run the test's body anew.
std::filesystem::path RunFolder();

// What a file holds; empty where there is none.
std::string ReadFile(const std::filesystem::path& file);

// Has the allocation with that number from now on fail, of those that may: with std::nothrow.
void FailAllocation(int number);

std::string Repeat(int count, const std::string& text);

// Runs a shell command; its exit status, with standard output and error in output.
int RunCommand(const std::string& command, std::string& output);

// The same for an installer or zaldeploy on this host, where another test may hold the lock: until it does not.
int RunOnHost(const std::string& command, std::string& output);
