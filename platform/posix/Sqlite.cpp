#include "platform/posix/Sqlite.h"

#include "platform/posix/HostLibrary.h"

namespace platform::posix {
namespace {

const SqliteLibrary* Load() {
    // Not RTLD_NOW: a reading needs a fraction of what the library would bind.
    void* const library = LoadHostLibrary("libsqlite3.so.0", RTLD_LAZY);
    if (library == nullptr) return nullptr;
    static SqliteLibrary sqlite;
    const bool complete = FindFunction(library, "sqlite3_open_v2", sqlite.open) &&
                          FindFunction(library, "sqlite3_close", sqlite.close) &&
                          FindFunction(library, "sqlite3_busy_timeout", sqlite.busyTimeout) &&
                          FindFunction(library, "sqlite3_db_config", sqlite.configure) &&
                          FindFunction(library, "sqlite3_changes", sqlite.changes) &&
                          FindFunction(library, "sqlite3_last_insert_rowid", sqlite.lastInsertRowid) &&
                          FindFunction(library, "sqlite3_system_errno", sqlite.systemErrno) &&
                          FindFunction(library, "sqlite3_prepare_v2", sqlite.prepare) &&
                          FindFunction(library, "sqlite3_finalize", sqlite.finalize) &&
                          FindFunction(library, "sqlite3_bind_text64", sqlite.bindText) &&
                          FindFunction(library, "sqlite3_bind_blob64", sqlite.bindBlob) &&
                          FindFunction(library, "sqlite3_bind_int64", sqlite.bindInteger) &&
                          FindFunction(library, "sqlite3_step", sqlite.step) &&
                          FindFunction(library, "sqlite3_column_int64", sqlite.columnInteger) &&
                          FindFunction(library, "sqlite3_column_blob", sqlite.columnBlob) &&
                          FindFunction(library, "sqlite3_column_bytes", sqlite.columnBytes);
    return complete ? &sqlite : nullptr;
}

}  // namespace

const SqliteLibrary* SqliteLibrary::Get() {
    static const SqliteLibrary* const library = Load();
    return library;
}

}  // namespace platform::posix
