#include "platform/Registry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>

#include "platform/System.h"
#include "platform/Text.h"
#include "platform/posix/RegistryDatabase.h"

namespace platform {
namespace {

using posix::SqlStatement;
using posix::SqlTransaction;

constexpr std::size_t kLongestKeyName = 255;

// What a key is called in the database.
struct KeyRow {
    std::int64_t id = 0;
    std::string path;
};

// The key as it is stored; id 0 if there is none. SQLITE_OK or an error.
int FindKey(sqlite3* connection, std::string_view path, KeyRow& row) {
    row = {};
    SqlStatement statement(connection, "SELECT id, path FROM keys WHERE path = ?");
    const int result = statement.Bind(path).Step();
    if (result == SQLITE_ROW) row = {statement.Number(0), statement.Text(1)};
    return result == SQLITE_ROW || result == SQLITE_DONE ? SQLITE_OK : result;
}

bool IsPath(std::u16string_view path) {
    while (!path.empty()) {
        const auto end = std::min(path.find(u'\\'), path.size());
        if (end == 0 || end > kLongestKeyName || end + 1 == path.size()) return false;
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return true;
}

// Goes down the path and makes what is missing. A key that exists keeps its spelling, and so do those made below it.
int MakeKeys(sqlite3* connection, std::string_view path, KeyRow& row) {
    int result = FindKey(connection, "", row);
    for (std::size_t at = 0; result == SQLITE_OK && at < path.size();) {
        const auto end = std::min(path.find('\\', at), path.size());
        const KeyRow parent = row;
        const std::string wanted = (parent.path.empty() ? "" : parent.path + '\\').append(path, at, end - at);
        at = end + 1;
        result = FindKey(connection, wanted, row);
        if (result != SQLITE_OK || row.id != 0) continue;
        SqlStatement insert(connection, "INSERT INTO keys (path, parent) VALUES (?, ?)");
        result = insert.Bind(wanted).Bind(parent.id).Run();
        row = {posix::Sqlite().lastInsertRowid(connection), wanted};
    }
    return result;
}

ErrorCode OpenKey(Hive hive, std::u16string_view path, bool create, RegistryKey& key) {
    key = {};
    if (path.ends_with(u'\\')) path.remove_suffix(1);
    if (!IsPath(path)) return ERROR_INVALID_PARAMETER;
    std::shared_ptr<RegistryKey::Database> database;
    if (const ErrorCode code = RegistryKey::Database::Open(hive, create, database); code != ERROR_SUCCESS) return code;
    sqlite3* const connection = database->Native();
    const std::string name = ToUtf8(path);
    KeyRow row;
    int result = FindKey(connection, name, row);
    if (result == SQLITE_OK && row.id == 0) {
        if (!create) return ERROR_FILE_NOT_FOUND;
        SqlTransaction transaction(connection);
        result = transaction.Result();
        if (result == SQLITE_OK) result = MakeKeys(connection, name, row);
        if (result == SQLITE_OK) result = transaction.Commit();
    }
    if (result != SQLITE_OK) return database->CodeOf(result);
    key = RegistryKey(hive, ToWide(row.path), std::move(database));
    return ERROR_SUCCESS;
}

// Runs what works on an open, existing key: the frame of every operation below.
ErrorCode WithKey(const RegistryKey& key, const std::function<ErrorCode(RegistryKey::Database&, const KeyRow&)>& work) {
    if (!key) return ERROR_INVALID_HANDLE;
    auto& database = *key.Backend();
    const auto lock = database.Lock();
    KeyRow row;
    if (const int result = FindKey(database.Native(), ToUtf8(key.Path()), row); result != SQLITE_OK)
        return database.CodeOf(result);
    return row.id == 0 ? ERROR_KEY_DELETED : work(database, row);
}

ErrorCode ListNames(const RegistryKey& key, std::string_view sql, std::vector<std::u16string>& names) {
    names.clear();
    return WithKey(key, [&](RegistryKey::Database& database, const KeyRow& row) {
        SqlStatement statement(database.Native(), sql);
        statement.Bind(row.id);
        int result = SQLITE_OK;
        while ((result = statement.Step()) == SQLITE_ROW)
            names.push_back(ToWide(statement.Text(0)));
        return database.CodeOf(result);
    });
}

}  // namespace

// On the folder, since the database closes its own locks with its descriptors.
RegistryChangeLock::RegistryChangeLock(Hive hive)
    : folder_(open((hive == Hive::HKEY_CURRENT_USER ? ConfigFolder() : MachineFolder()).c_str(),
                   O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    while (folder_ >= 0 && flock(folder_, LOCK_EX) != 0 && errno == EINTR) {
    }
}

RegistryChangeLock::~RegistryChangeLock() {
    if (folder_ >= 0) close(folder_);
}

ErrorCode RegCreateKeyExW(Hive hive, std::u16string_view path, RegistryKey& key) {
    return OpenKey(hive, path, true, key);
}

ErrorCode RegOpenKeyExW(Hive hive, std::u16string_view path, RegistryKey& key) {
    return OpenKey(hive, path, false, key);
}

ErrorCode RegQueryValueExW(const RegistryKey& key, std::u16string_view name, RegistryValue& value) {
    value = {};
    return WithKey(key, [&](RegistryKey::Database& database, const KeyRow& row) {
        const std::string utf8 = ToUtf8(name);
        SqlStatement statement(database.Native(), "SELECT type, data FROM entries WHERE key = ? AND name = ?");
        const int result = statement.Bind(row.id).Bind(utf8).Step();
        if (result == SQLITE_DONE) return ERROR_FILE_NOT_FOUND;
        if (result != SQLITE_ROW) return database.CodeOf(result);
        value = {static_cast<std::uint32_t>(statement.Number(0)), CopyOf(statement.Blob(1))};
        return ERROR_SUCCESS;
    });
}

ErrorCode RegSetValueExW(const RegistryKey& key, std::u16string_view name, std::uint32_t type, ByteView data) {
    return WithKey(key, [&](RegistryKey::Database& database, const KeyRow&) {
        const std::string path = ToUtf8(key.Path()), utf8 = ToUtf8(name);
        // One statement finds the key and writes, so that a key deleted in between is noticed.
        SqlStatement statement(database.Native(),
                               "INSERT INTO entries (key, name, type, data) "
                               "SELECT id, ?, ?, ? FROM keys WHERE path = ? "
                               "ON CONFLICT (key, name) DO UPDATE SET type = excluded.type, data = excluded.data");
        const int result = statement.Bind(utf8).Bind(std::int64_t{type}).Bind(data).Bind(path).Run();
        if (result != SQLITE_OK) return database.CodeOf(result);
        return database.Changes() == 0 ? ERROR_KEY_DELETED : ERROR_SUCCESS;
    });
}

ErrorCode RegDeleteValueW(const RegistryKey& key, std::u16string_view name) {
    return WithKey(key, [&](RegistryKey::Database& database, const KeyRow& row) {
        const std::string utf8 = ToUtf8(name);
        SqlStatement statement(database.Native(), "DELETE FROM entries WHERE key = ? AND name = ?");
        const int result = statement.Bind(row.id).Bind(utf8).Run();
        if (result != SQLITE_OK) return database.CodeOf(result);
        return database.Changes() == 0 ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS;
    });
}

ErrorCode RegDeleteKeyW(const RegistryKey& key, std::u16string_view subkey) {
    if (subkey.empty() || !IsPath(subkey)) return ERROR_INVALID_PARAMETER;
    return WithKey(key, [&](RegistryKey::Database& database, const KeyRow& row) {
        sqlite3* const connection = database.Native();
        SqlTransaction transaction(connection);
        if (transaction.Result() != SQLITE_OK) return database.CodeOf(transaction.Result());
        KeyRow doomed;
        const std::string path = (row.path.empty() ? "" : row.path + '\\') + ToUtf8(subkey);
        if (const int result = FindKey(connection, path, doomed); result != SQLITE_OK) return database.CodeOf(result);
        if (doomed.id == 0) return ERROR_FILE_NOT_FOUND;
        SqlStatement below(connection, "SELECT 1 FROM keys WHERE parent = ? LIMIT 1");
        if (below.Bind(doomed.id).Step() == SQLITE_ROW) return ERROR_ACCESS_DENIED;
        for (const char* sql : {"DELETE FROM entries WHERE key = ?", "DELETE FROM keys WHERE id = ?"}) {
            const int result = SqlStatement(connection, sql).Bind(doomed.id).Run();
            if (result != SQLITE_OK) return database.CodeOf(result);
        }
        return database.CodeOf(transaction.Commit());
    });
}

ErrorCode RegEnumKeyExW(const RegistryKey& key, std::vector<std::u16string>& names) {
    const ErrorCode code = ListNames(key, "SELECT path FROM keys WHERE parent = ? ORDER BY id", names);
    for (auto& name : names)
        name.erase(0, name.rfind(u'\\') + 1);
    return code;
}

ErrorCode RegEnumValueW(const RegistryKey& key, std::vector<std::u16string>& names) {
    return ListNames(key, "SELECT name FROM entries WHERE key = ? ORDER BY id", names);
}

}  // namespace platform
