// Folders that each server has of its own: /run/flashlib, /var/run/flashlib and /var/lib/flashlib.
#pragma once

#include <string>

namespace sim
{

class CServer;

// A path as a program names it. One of those folders, or of what is in them, stands for that of the same name in the
// folder of the current server, where the folder above is then made.
class CHostPath
{
  public:
    explicit CHostPath(const char* path);
    CHostPath(const CHostPath&) = delete;
    CHostPath& operator=(const CHostPath&) = delete;

    operator const char*() const { return m_pszPath; }

    // The server in whose folder it stands; null for any other path.
    CServer* GetServer() const { return m_pServer; }

  private:
    const char* m_pszPath;
    CServer* m_pServer = nullptr;  // null: it is in none of the folders
    std::string m_sOnServer;
};

}  // namespace sim
