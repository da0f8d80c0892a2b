#pragma once
// Reading and writing settings in the registry. Settings are never kept in memory: every reader makes a CRegistry on
// the stack, opens its key, reads and lets go.
//
//   CRegistry registry;
//   registry.Open(u"software\\tessaly\\Tessaly Norvik\\Verification", true);
//   const auto hash = registry.ReadString(u"HashAlg", u"SHA256");   // also when the key did not open

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Registry.h"

class CRegistry {
  public:
    explicit CRegistry(platform::Hive root = platform::Hive::HKEY_CURRENT_USER) : root_(root) {}

    // Opens a key of the root hive with all access, makes it if `create`. False on failure; then no key is held.
    bool Open(std::u16string_view path, bool create);
    void Close() { key_ = {}; }

    // The text up to its terminator. The default, and nothing written, if the value is missing, is no text, cannot be
    // read, or no key is open.
    [[nodiscard]] std::u16string ReadString(std::u16string_view name, std::u16string_view fallback = {}) const;
    // False if it was not written: with no open key, too.
    bool WriteString(std::u16string_view name, std::u16string_view text);

    // A missing value is stored with its default, so that it can be seen and changed from outside. Every other failure
    // gives the default unwritten.
    [[nodiscard]] std::uint32_t ReadDword(std::u16string_view name, std::uint32_t fallback = 0);
    bool WriteDword(std::u16string_view name, std::uint32_t value);

    // REG_BINARY under the name "Password": the text in UTF-16LE with its terminator.
    bool WritePassword(std::u16string_view password);

    [[nodiscard]] const platform::RegistryKey& GetKey() const { return key_; }

  private:
    platform::Hive root_;
    platform::RegistryKey key_;
};
