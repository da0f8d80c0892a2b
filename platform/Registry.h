#pragma once
// The registry: a tree of keys with typed values, kept in one SQLite database per hive. Several processes may write at
// once; a value read is always one that was written whole. Key and value names compare without letter case (ASCII).

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/Types.h"

namespace platform {

enum class Hive { HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE };

constexpr std::uint32_t REG_SZ = 1;
constexpr std::uint32_t REG_BINARY = 3;
constexpr std::uint32_t REG_DWORD = 4;

// A key held open. A value type: copies share what is open; empty when nothing is.
class RegistryKey {
  public:
    RegistryKey() = default;
    explicit operator bool() const { return database_ != nullptr; }
    [[nodiscard]] Hive Root() const { return hive_; }
    // Below the hive, with backslashes, as first written.
    [[nodiscard]] const std::u16string& Path() const { return path_; }

    class Database;  // the open hive; defined by the backend
    RegistryKey(Hive hive, std::u16string path, std::shared_ptr<Database> database)
        : hive_(hive), path_(std::move(path)), database_(std::move(database)) {}
    [[nodiscard]] Database* Backend() const { return database_.get(); }

  private:
    Hive hive_ = Hive::HKEY_CURRENT_USER;
    std::u16string path_;
    std::shared_ptr<Database> database_;
};

struct RegistryValue {
    std::uint32_t type = 0;
    Bytes data;  // REG_SZ: UTF-16LE with the terminator counted; REG_DWORD: four bytes, little-endian
};

// For who reads a value, changes it and writes it back: a second one waits until the first is gone. Writers who take
// none are not held up. Locks nothing where the hive does not exist yet.
class RegistryChangeLock {
  public:
    explicit RegistryChangeLock(Hive hive);
    ~RegistryChangeLock();
    RegistryChangeLock(const RegistryChangeLock&) = delete;
    RegistryChangeLock& operator=(const RegistryChangeLock&) = delete;

  private:
    int folder_;
};

// Each answers ERROR_SUCCESS or the reason, as these services do (they do not touch GetLastError).
// All access is asked for: a hive that may not be written gives ERROR_ACCESS_DENIED on both ways of opening. A hive
// that does not exist yet is made by RegCreateKeyExW alone; ERROR_PATH_NOT_FOUND if the user has no home folder. A
// damaged one gives ERROR_REGISTRY_CORRUPT and is left as it is: it is the user's, and may still be mended. An empty
// path stands for the hive itself. Names of keys are not empty and have up to 255 units.
ErrorCode RegCreateKeyExW(Hive hive, std::u16string_view path, RegistryKey& key);
ErrorCode RegOpenKeyExW(Hive hive, std::u16string_view path, RegistryKey& key);
// ERROR_FILE_NOT_FOUND is the signal for a missing value.
ErrorCode RegQueryValueExW(const RegistryKey& key, std::u16string_view name, RegistryValue& value);
// ERROR_KEY_DELETED, here and below, if the key is gone meanwhile.
ErrorCode RegSetValueExW(const RegistryKey& key, std::u16string_view name, std::uint32_t type, ByteView data);
ErrorCode RegDeleteValueW(const RegistryKey& key, std::u16string_view name);
// With its values. A key that has keys below it is refused with ERROR_ACCESS_DENIED.
ErrorCode RegDeleteKeyW(const RegistryKey& key, std::u16string_view subkey);
// Names in the order of their making.
ErrorCode RegEnumKeyExW(const RegistryKey& key, std::vector<std::u16string>& names);
ErrorCode RegEnumValueW(const RegistryKey& key, std::vector<std::u16string>& names);

}  // namespace platform
