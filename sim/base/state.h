// How a server keeps its state: files in its folder, read and checked here, written whole or not at all, and used by
// any number of processes at once.
#pragma once

#include <cstddef>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "sim/base/fields.h"
#include "sim/base/steps.h"
#include "support/descriptor.h"

namespace sim
{

// A server's folder. An operation of a device holds its lock from before it looks at the state until it has written it:
//
//     const CServerFolder::Lock lock(m_Folder);
//     m_File.Refresh(...);  // what another process did meanwhile
//     ...                   // the operation
//     m_File.Write(...);
//
// The lock is the system's own (flock), so it goes with the process that holds it, however that ends. It is taken on a
// descriptor of its own each time, which no process that was forked off before shares. Nothing is synced to the disk: a
// process dies here, not the machine.
class CServerFolder
{
  public:
    // Throws std::runtime_error with a sentence where there is no such folder.
    explicit CServerFolder(const std::filesystem::path& path);
    CServerFolder(const CServerFolder&) = delete;
    CServerFolder& operator=(const CServerFolder&) = delete;

    const std::filesystem::path& Path() const { return m_Path; }

    // What is done to the server is counted there.
    CSteps& GetSteps() { return m_Steps; }

    // Keeps the other processes and threads out while it lives. A thread may hold several.
    class Lock
    {
      public:
        explicit Lock(CServerFolder& folder);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

      private:
        std::lock_guard<std::recursive_mutex> m_Guard;
        CServerFolder& m_Folder;
    };

    // Ends what holds only while the server runs: removes the files whose names end with ".running".
    void Restart();

    // Takes the power from the server: the process, if it did not end before, is killed. What its devices have written
    // so far stays, but for what ends with a restart.
    [[noreturn]] void LosePower();

  private:
    CDescriptor Open() const;

    std::filesystem::path m_Path;
    CSteps m_Steps;
    CDescriptor m_Locked;  // open while the lock is held
    std::recursive_mutex m_Mutex;
    int m_Locks = 0;
};

// A file of a device's state. Its functions are called with the folder locked, and throw std::runtime_error with a
// sentence that names the file and what to do.
class CStateFile
{
  public:
    // A file that has more than maxSize bytes is not what the server wrote, and is refused before it is read.
    CStateFile(CServerFolder& folder, const std::string& name, std::size_t maxSize);

    const std::filesystem::path& Path() const { return m_Path; }
    bool Exists() const;

    // When the file is not the one that was read or written last (another process wrote it, or nothing was read yet):
    // true, with its bytes, or with nothing where there is no file.
    bool Refresh(std::optional<std::string>& bytes) { return RefreshStart(bytes, m_MaxSize); }

    // The same with the first bytes alone, most of them, of a file that need not be in memory.
    bool RefreshStart(std::optional<std::string>& bytes, std::size_t most);

    // Bytes of the file that was read or written last; 0 where there was none.
    std::size_t GetSize() const { return m_KnownSize; }

    // The same for a JSON object, which reader takes apart; what is missing in it, or the whole file, has the value
    // that reader gives it otherwise.
    template <typename Reader>
    void RefreshFields(Reader reader)
    {
        std::optional<std::string> text;
        if (!Refresh(text)) return;
        try {
            CFields::Read(text ? ParseJson(*text) : Json::object(), m_Path.filename().string(), reader);
        } catch (const std::exception& error) {
            RefuseContents(error.what());
        }
    }

    // Makes the bytes, or the object, the whole contents. This and what follows is a step each.
    void Write(std::string_view bytes);
    void WriteObject(const Json& object);

    // Adds bytes to a file of which any number, counted from its start, is valid: a process that is killed meanwhile
    // leaves some of them, and so does power that goes in the middle. Costs as much as the bytes are many, however long
    // the file is.
    void Append(std::string_view bytes);

    void Remove();

    // Makes the other file, which is then gone, the contents.
    void TakeFrom(CStateFile& other);

    // Refuses what the file holds.
    [[noreturn]] void RefuseContents(const std::string& why) const;

  private:
    void Open();
    std::string Name() const { return m_Path.filename().string(); }

    CServerFolder& m_Folder;
    std::filesystem::path m_Path;
    std::size_t m_MaxSize;
    // The version that was read or written last. Every version is a file of its own, and while it is open no other gets
    // its number.
    CDescriptor m_Known;
    std::size_t m_KnownSize = 0;  // bytes
    bool m_bKnown = false;        // false: nothing was read yet
};

}  // namespace sim
