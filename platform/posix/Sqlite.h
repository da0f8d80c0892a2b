#pragma once
// The functions of SQLite, found when the first settings are read: most operations of most users read none, and to map
// and bind the library takes as long as the rest of a small one's start.

#include <sqlite3.h>

namespace platform::posix {

struct SqliteLibrary {
    decltype(&sqlite3_open_v2) open;
    decltype(&sqlite3_close) close;
    decltype(&sqlite3_busy_timeout) busyTimeout;
    decltype(&sqlite3_db_config) configure;
    decltype(&sqlite3_changes) changes;
    decltype(&sqlite3_last_insert_rowid) lastInsertRowid;
    decltype(&sqlite3_system_errno) systemErrno;
    decltype(&sqlite3_prepare_v2) prepare;
    decltype(&sqlite3_finalize) finalize;
    decltype(&sqlite3_bind_text64) bindText;
    decltype(&sqlite3_bind_blob64) bindBlob;
    decltype(&sqlite3_bind_int64) bindInteger;
    decltype(&sqlite3_step) step;
    decltype(&sqlite3_column_int64) columnInteger;
    decltype(&sqlite3_column_blob) columnBlob;
    decltype(&sqlite3_column_bytes) columnBytes;

    // Null if the host has no such library.
    static const SqliteLibrary* Get();
};

// For those who hold a connection or a statement, and so have the library.
inline const SqliteLibrary& Sqlite() {
    return *SqliteLibrary::Get();
}

}  // namespace platform::posix
