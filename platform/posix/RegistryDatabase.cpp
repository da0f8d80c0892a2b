#include "platform/posix/RegistryDatabase.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/System.h"
#include "platform/posix/Native.h"

namespace platform {
namespace {

constexpr int kBusyTimeoutMilliseconds = 10'000;
constexpr std::int64_t kApplicationId = 0x4E6F7276;  // "Norv"
constexpr std::int64_t kSchemaVersion = 1;

// NOCASE folds ASCII letters alone. The key '' is the hive itself.
constexpr const char* kSchema[] = {
    "CREATE TABLE keys (id INTEGER PRIMARY KEY, path TEXT NOT NULL COLLATE NOCASE UNIQUE,"
    " parent INTEGER REFERENCES keys (id))",
    "CREATE INDEX keys_by_parent ON keys (parent)",
    "CREATE TABLE entries (id INTEGER PRIMARY KEY, key INTEGER NOT NULL REFERENCES keys (id),"
    " name TEXT NOT NULL COLLATE NOCASE, type INTEGER NOT NULL, data BLOB NOT NULL, UNIQUE (key, name))",
    "INSERT INTO keys (path) VALUES ('')",
    "PRAGMA application_id = 0x4E6F7276",
    "PRAGMA user_version = 1",
};

std::filesystem::path FileOf(Hive hive) {
    const auto folder = hive == Hive::HKEY_CURRENT_USER ? ConfigFolder() : MachineFolder();
    return folder.empty() ? folder : folder / "registry.db";
}

// Only its owner may look into the user's folder; the machine's is for all to see.
constexpr mode_t FolderModeOf(Hive hive) {
    return hive == Hive::HKEY_CURRENT_USER ? 0700 : 0755;
}
constexpr mode_t FileModeOf(Hive hive) {
    return hive == Hive::HKEY_CURRENT_USER ? 0600 : 0644;
}

ErrorCode MakeFolders(const std::filesystem::path& folder, mode_t mode) {
    if (mkdir(folder.c_str(), mode) == 0 || errno == EEXIST) return ERROR_SUCCESS;
    if (errno != ENOENT || !folder.has_relative_path()) return ErrorFromErrno(errno);
    if (const ErrorCode code = MakeFolders(folder.parent_path(), mode); code != ERROR_SUCCESS) return code;
    return mkdir(folder.c_str(), mode) == 0 || errno == EEXIST ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

ErrorCode MakeFile(const std::filesystem::path& file, Hive hive) {
    if (const ErrorCode code = MakeFolders(file.parent_path(), FolderModeOf(hive)); code != ERROR_SUCCESS) return code;
    // Not open(): closing a descriptor of the file would drop the locks that another thread's connection holds on it.
    if (mknod(file.c_str(), S_IFREG | FileModeOf(hive), 0) == 0 || errno == EEXIST) return ERROR_SUCCESS;
    return ErrorFromErrno(errno);
}

// SQLite would open what may not be written for reading alone, and would need the folder for its journal.
ErrorCode CheckAccess(const std::filesystem::path& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) return ErrorFromErrno(errno);
    if (!S_ISREG(status.st_mode)) return ERROR_REGISTRY_CORRUPT;
    for (const auto& path : {file, file.parent_path()}) {
        if (faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK, AT_EACCESS) != 0) return ErrorFromErrno(errno);
    }
    return ERROR_SUCCESS;
}

}  // namespace

ErrorCode RegistryKey::Database::Open(Hive hive, bool create, std::shared_ptr<Database>& database) {
    const auto file = FileOf(hive);
    if (file.empty()) return ERROR_PATH_NOT_FOUND;
    auto opened = std::make_shared<Database>();
    ErrorCode code = opened->Connect(file, hive, create);
    if (code == ERROR_SUCCESS) code = opened->CheckSchema(create);
    if (code == ERROR_REGISTRY_CORRUPT) posix::LogHost("the registry is damaged: " + file.string());
    if (code == ERROR_SUCCESS) database = std::move(opened);
    return code;
}

ErrorCode RegistryKey::Database::Connect(const std::filesystem::path& file, Hive hive, bool create) {
    ErrorCode code = CheckAccess(file);
    if (code == ERROR_FILE_NOT_FOUND && create) {
        code = MakeFile(file, hive);
        if (code == ERROR_SUCCESS) code = CheckAccess(file);
    }
    if (code != ERROR_SUCCESS) return code;
    const auto* const sqlite = posix::SqliteLibrary::Get();
    if (sqlite == nullptr) return ERROR_REGISTRY_IO_FAILED;
    sqlite3* connection = nullptr;
    const int result = sqlite->open(file.c_str(), &connection, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    connection_.reset(connection);
    if (result != SQLITE_OK) return CodeOf(result);
    sqlite->busyTimeout(connection, kBusyTimeoutMilliseconds);
    // What a tampered file brings along is not run.
    sqlite->configure(connection, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite->configure(connection, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite->configure(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    return ERROR_SUCCESS;
}

// A file without tables is one whose making was interrupted, or that another process is just making.
ErrorCode RegistryKey::Database::CheckSchema(bool create) {
    sqlite3* const connection = connection_.get();
    const auto header = [&](std::string_view pragma, std::int64_t& value) {
        posix::SqlStatement statement(connection, pragma);
        const int result = statement.Step();
        if (result != SQLITE_ROW) return result;
        value = statement.Number(0);
        return SQLITE_OK;
    };
    std::int64_t application = 0, version = 0, tables = 0;
    const auto look = [&] {
        int result = header("PRAGMA application_id", application);
        if (result == SQLITE_OK) result = header("PRAGMA user_version", version);
        if (result == SQLITE_OK && application == 0) result = header("SELECT count(*) FROM sqlite_schema", tables);
        return result;
    };
    {
        // The three must be of one moment: a process that is just making the tables would show us its marks half.
        const posix::SqlTransaction moment(connection, posix::SqlTransaction::Kind::reading);
        if (moment.Result() != SQLITE_OK) return CodeOf(moment.Result());
        if (const int result = look(); result != SQLITE_OK) return CodeOf(result);
    }
    if (application == kApplicationId) return version == kSchemaVersion ? ERROR_SUCCESS : ERROR_NOT_SUPPORTED;
    if (application != 0 || tables != 0) return ERROR_REGISTRY_CORRUPT;
    if (!create) return ERROR_FILE_NOT_FOUND;

    posix::SqlTransaction transaction(connection);
    if (transaction.Result() != SQLITE_OK) return CodeOf(transaction.Result());
    if (const int result = look(); result != SQLITE_OK) return CodeOf(result);
    if (application == kApplicationId) return ERROR_SUCCESS;  // the other process was faster
    for (const char* sql : kSchema) {
        if (const int result = posix::SqlStatement(connection, sql).Run(); result != SQLITE_OK) return CodeOf(result);
    }
    return CodeOf(transaction.Commit());
}

ErrorCode RegistryKey::Database::CodeOf(int result) const {
    switch (result & 0xFF) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return ERROR_SUCCESS;
        case SQLITE_PERM:
        case SQLITE_READONLY:
        case SQLITE_AUTH:
            return ERROR_ACCESS_DENIED;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return ERROR_BUSY;
        case SQLITE_NOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case SQLITE_FULL:
            return ERROR_DISK_FULL;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_ERROR:  // a table of ours is missing
            return ERROR_REGISTRY_CORRUPT;
        case SQLITE_CANTOPEN:
            return ErrorFromErrno(posix::Sqlite().systemErrno(connection_.get()));
        case SQLITE_TOOBIG:
            return ERROR_INVALID_PARAMETER;
        default:
            return ERROR_REGISTRY_IO_FAILED;
    }
}

namespace posix {

SqlStatement::SqlStatement(sqlite3* connection, std::string_view sql) {
    sqlite3_stmt* statement = nullptr;
    Note(Sqlite().prepare(connection, sql.data(), static_cast<int>(sql.size()), &statement, nullptr));
    statement_.reset(statement);
}

void SqlStatement::Note(int result) {
    if (error_ == SQLITE_OK) error_ = result;
}

SqlStatement& SqlStatement::Bind(std::string_view text) {
    // A null pointer would be bound as NULL.
    const char* data = text.empty() ? "" : text.data();
    Note(Sqlite().bindText(statement_.get(), ++parameter_, data, text.size(), SQLITE_STATIC, SQLITE_UTF8));
    return *this;
}

SqlStatement& SqlStatement::Bind(ByteView bytes) {
    const void* data = bytes.empty() ? static_cast<const void*>("") : bytes.data();
    Note(Sqlite().bindBlob(statement_.get(), ++parameter_, data, bytes.size(), SQLITE_STATIC));
    return *this;
}

SqlStatement& SqlStatement::Bind(std::int64_t number) {
    Note(Sqlite().bindInteger(statement_.get(), ++parameter_, number));
    return *this;
}

int SqlStatement::Step() {
    if (error_ != SQLITE_OK) return error_;
    const int result = Sqlite().step(statement_.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE) Note(result);
    return result;
}

int SqlStatement::Run() {
    const int result = Step();
    return result == SQLITE_DONE || result == SQLITE_ROW ? SQLITE_OK : result;
}

ByteView SqlStatement::Blob(int column) const {
    const void* data = Sqlite().columnBlob(statement_.get(), column);
    return {static_cast<const std::uint8_t*>(data),
            static_cast<std::size_t>(Sqlite().columnBytes(statement_.get(), column))};
}

}  // namespace posix
}  // namespace platform
