#include "tools/deploy/database.h"

#include "support/printable.h"

namespace
{

const int BusyTime = 5000;       // ms
const int MaxLength = 64 << 10;  // bytes of a text

}  // namespace

CDatabase::CDatabase(const std::filesystem::path& file, Access access)
{
    sqlite3* pDatabase = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | (access == Access_Create ? SQLITE_OPEN_CREATE : 0);
    const int status = sqlite3_open_v2(file.c_str(), &pDatabase, flags, nullptr);
    m_pDatabase.reset(pDatabase);
    if (status != SQLITE_OK) throw DatabaseError(sqlite3_errstr(status));
    sqlite3_busy_timeout(pDatabase, BusyTime);
    sqlite3_limit(pDatabase, SQLITE_LIMIT_LENGTH, MaxLength);
    Execute("PRAGMA synchronous = EXTRA");  // FULL, and the folder, too
    Execute("PRAGMA temp_store = MEMORY");
}

void CDatabase::Execute(const char* sql)
{
    CStatement(*this, sql).Run();
}

CTransaction::CTransaction(CDatabase& database) : m_Database(database)
{
    m_Database.Execute("BEGIN IMMEDIATE");
}

CTransaction::~CTransaction()
{
    if (!m_bCommitted) sqlite3_exec(m_Database.Get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void CTransaction::Commit()
{
    m_Database.Execute("COMMIT");
    m_bCommitted = true;
}

CStatement::CStatement(const CDatabase& database, const std::string& sql) : m_pDatabase(database.Get())
{
    sqlite3_stmt* pStatement = nullptr;
    const int status = sqlite3_prepare_v2(m_pDatabase, sql.c_str(), -1, &pStatement, nullptr);
    m_pStatement.reset(pStatement);
    Check(status);
}

CStatement& CStatement::Bind(const std::string& text)
{
    Check(sqlite3_bind_text(m_pStatement.get(), ++m_Bound, text.c_str(), static_cast<int>(text.size()),
                            SQLITE_TRANSIENT));
    return *this;
}

CStatement& CStatement::Bind(long long number)
{
    Check(sqlite3_bind_int64(m_pStatement.get(), ++m_Bound, number));
    return *this;
}

CStatement& CStatement::Bind(double number)
{
    Check(sqlite3_bind_double(m_pStatement.get(), ++m_Bound, number));
    return *this;
}

bool CStatement::Step()
{
    const int status = sqlite3_step(m_pStatement.get());
    if (status != SQLITE_ROW && status != SQLITE_DONE) Check(status);
    return status == SQLITE_ROW;
}

void CStatement::Run()
{
    while (Step()) continue;
}

std::string CStatement::Text(int column) const
{
    const unsigned char* pszText = sqlite3_column_text(m_pStatement.get(), column);
    return PrintableLines(pszText ? reinterpret_cast<const char*>(pszText) : "");
}

void CStatement::Check(int status) const
{
    if (status != SQLITE_OK) throw DatabaseError(sqlite3_errmsg(m_pDatabase));
}
