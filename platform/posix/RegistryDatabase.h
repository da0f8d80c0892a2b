#pragma once
// One hive's SQLite database and the statements run on it.

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/Registry.h"
#include "platform/posix/Sqlite.h"

namespace platform {

namespace posix {

struct CloseSql {
    void operator()(sqlite3* connection) const noexcept { Sqlite().close(connection); }
    void operator()(sqlite3_stmt* statement) const noexcept { Sqlite().finalize(statement); }
};

}  // namespace posix

// A connection. It lives as long as a key of it is open; nothing that was read is kept in it.
class RegistryKey::Database {
  public:
    // Opens the hive's file; makes folder, file and tables if `create`.
    static ErrorCode Open(Hive hive, bool create, std::shared_ptr<Database>& database);

    // Held over a group of statements, because copies of a key may be used by several threads.
    [[nodiscard]] std::unique_lock<std::mutex> Lock() { return std::unique_lock(mutex_); }
    [[nodiscard]] sqlite3* Native() const { return connection_.get(); }
    // The code for what the last statement answered.
    [[nodiscard]] ErrorCode CodeOf(int result) const;
    // Rows changed by the last statement.
    [[nodiscard]] int Changes() const { return posix::Sqlite().changes(connection_.get()); }

  private:
    ErrorCode Connect(const std::filesystem::path& file, Hive hive, bool create);
    ErrorCode CheckSchema(bool create);
    std::mutex mutex_;
    std::unique_ptr<sqlite3, posix::CloseSql> connection_;
};

namespace posix {

// A prepared statement; parameters are bound in their order. Texts and bytes must live until the last Step.
class SqlStatement {
  public:
    SqlStatement(sqlite3* connection, std::string_view sql);
    SqlStatement& Bind(std::string_view text);
    SqlStatement& Bind(ByteView bytes);
    SqlStatement& Bind(std::int64_t number);
    // SQLITE_ROW, SQLITE_DONE or the first error since the preparation.
    int Step();
    // Runs a statement that answers no rows: SQLITE_OK or the error.
    int Run();
    [[nodiscard]] std::int64_t Number(int column) const { return Sqlite().columnInteger(statement_.get(), column); }
    [[nodiscard]] std::string Text(int column) const { return std::string(AsText(Blob(column))); }
    [[nodiscard]] ByteView Blob(int column) const;

  private:
    void Note(int result);
    std::unique_ptr<sqlite3_stmt, CloseSql> statement_;
    int parameter_ = 0;
    int error_ = SQLITE_OK;
};

// Writing takes the write lock at once, so that what is read inside is still true when it is written; reading shows the
// state at its first statement until its end. Undone unless committed.
class SqlTransaction {
  public:
    enum class Kind { writing, reading };
    explicit SqlTransaction(sqlite3* connection, Kind kind = Kind::writing)
        : connection_(connection),
          result_(SqlStatement(connection, kind == Kind::writing ? "BEGIN IMMEDIATE" : "BEGIN").Run()) {}
    ~SqlTransaction() {
        if (result_ == SQLITE_OK) SqlStatement(connection_, "ROLLBACK").Run();
    }
    SqlTransaction(const SqlTransaction&) = delete;
    SqlTransaction& operator=(const SqlTransaction&) = delete;
    [[nodiscard]] int Result() const { return result_; }
    int Commit() {
        const int result = SqlStatement(connection_, "COMMIT").Run();
        if (result == SQLITE_OK) result_ = SQLITE_DONE;
        return result;
    }

  private:
    sqlite3* connection_;
    int result_;
};

}  // namespace posix
}  // namespace platform
