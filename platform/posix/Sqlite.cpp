#include "platform/posix/Sqlite.h"

#include <dlfcn.h>

#include <string>

#include "platform/posix/Native.h"

namespace platform::posix {
namespace {

template <typename Function>
bool Find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    return function != nullptr;
}

const SqliteLibrary* Load() {
    // Not RTLD_NOW: a reading needs a fraction of what the library would bind.
    void* const library = dlopen("libsqlite3.so.0", RTLD_LAZY | RTLD_LOCAL);
    if (library == nullptr) {
        const char* const reason = dlerror();
        LogHost(std::string("SQLite cannot be loaded: ") + (reason == nullptr ? "" : reason));
        return nullptr;
    }
    static SqliteLibrary sqlite;
    const bool complete =
        Find(library, "sqlite3_open_v2", sqlite.open) && Find(library, "sqlite3_close", sqlite.close) &&
        Find(library, "sqlite3_busy_timeout", sqlite.busyTimeout) &&
        Find(library, "sqlite3_db_config", sqlite.configure) && Find(library, "sqlite3_changes", sqlite.changes) &&
        Find(library, "sqlite3_last_insert_rowid", sqlite.lastInsertRowid) &&
        Find(library, "sqlite3_system_errno", sqlite.systemErrno) &&
        Find(library, "sqlite3_prepare_v2", sqlite.prepare) && Find(library, "sqlite3_finalize", sqlite.finalize) &&
        Find(library, "sqlite3_bind_text64", sqlite.bindText) &&
        Find(library, "sqlite3_bind_blob64", sqlite.bindBlob) &&
        Find(library, "sqlite3_bind_int64", sqlite.bindInteger) && Find(library, "sqlite3_step", sqlite.step) &&
        Find(library, "sqlite3_column_int64", sqlite.columnInteger) &&
        Find(library, "sqlite3_column_blob", sqlite.columnBlob) &&
        Find(library, "sqlite3_column_bytes", sqlite.columnBytes);
    return complete ? &sqlite : nullptr;
}

}  // namespace

const SqliteLibrary* SqliteLibrary::Get() {
    static const SqliteLibrary* const library = Load();
    return library;
}

}  // namespace platform::posix
