// What all tests use.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
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
    std::uintmax_t m_Before;  // bytes
};

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

std::string ReadFile(const std::filesystem::path& file);

std::string Repeat(int count, const std::string& text);

// Runs a shell command; its exit status, with standard output and error in output.
int RunCommand(const std::string& command, std::string& output);
