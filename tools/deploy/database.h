// SQLite, whose calls throw.
#pragma once

#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

// What SQLite says is wrong.
class DatabaseError : public std::runtime_error
{
  public:
    explicit DatabaseError(const std::string& what) : std::runtime_error(what) {}
};

class CDatabase
{
  public:
    enum Access
    {
        Access_Existing,  // for writing where the file lets, else for reading
        Access_Create,
    };

    // Waits at most five seconds for another process that writes. What is committed is on the disk, and so is that it
    // is there: the file and its folder are synced.
    CDatabase(const std::filesystem::path& file, Access access);

    void Execute(const char* sql);
    long long LastRow() const { return sqlite3_last_insert_rowid(m_pDatabase.get()); }
    sqlite3* Get() const { return m_pDatabase.get(); }

  private:
    struct Close
    {
        void operator()(sqlite3* p) const { sqlite3_close(p); }
    };
    std::unique_ptr<sqlite3, Close> m_pDatabase;
};

// Holds the database for writing, so that what is read stays true; what was done is undone unless it is committed.
class CTransaction
{
  public:
    explicit CTransaction(CDatabase& database);
    ~CTransaction();
    CTransaction(const CTransaction&) = delete;
    CTransaction& operator=(const CTransaction&) = delete;

    void Commit();

  private:
    CDatabase& m_Database;
    bool m_bCommitted = false;
};

// A statement. Its parameters are bound in their order.
class CStatement
{
  public:
    CStatement(const CDatabase& database, const std::string& sql);

    CStatement& Bind(const std::string& text);
    CStatement& Bind(long long number);
    CStatement& Bind(double number);

    // The next row; false when there is none any more.
    bool Step();
    void Run();

    // A column of that row, empty and 0 where there is nothing. The text is fit for a terminal, but for the ends of
    // lines.
    std::string Text(int column) const;
    long long Number(int column) const { return sqlite3_column_int64(m_pStatement.get(), column); }
    double Real(int column) const { return sqlite3_column_double(m_pStatement.get(), column); }

  private:
    struct Finalize
    {
        void operator()(sqlite3_stmt* p) const { sqlite3_finalize(p); }
    };
    void Check(int status) const;

    sqlite3* m_pDatabase;
    std::unique_ptr<sqlite3_stmt, Finalize> m_pStatement;
    int m_Bound = 0;
};
