#pragma once
// A password, a PIN or the bytes of a private key: move-only, never in a short string, wiped when it dies.

#include <string_view>
#include <utility>

#include "platform/Types.h"

namespace platform {

// Overwrites memory in a way that the compiler may not leave out.
void Wipe(void* memory, std::size_t size);

class Secret {
  public:
    Secret() = default;
    explicit Secret(std::string_view text) : bytes_(text.begin(), text.end()) {}
    explicit Secret(Bytes bytes) : bytes_(std::move(bytes)) {}
    Secret(Secret&& other) noexcept : bytes_(std::exchange(other.bytes_, {})) {}
    Secret& operator=(Secret&& other) noexcept {
        if (this == &other) return *this;
        Clear();
        bytes_ = std::exchange(other.bytes_, {});
        return *this;
    }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    ~Secret() { Clear(); }

    [[nodiscard]] Secret Copy() const { return Secret(bytes_); }
    // UTF-8 for passwords and PINs.
    [[nodiscard]] std::string_view Text() const { return AsText(bytes_); }
    [[nodiscard]] ByteView View() const { return bytes_; }
    [[nodiscard]] bool Empty() const { return bytes_.empty(); }
    void Clear() {
        if (!bytes_.empty()) Wipe(bytes_.data(), bytes_.size());
        bytes_.clear();
    }

  private:
    Bytes bytes_;
};

}  // namespace platform
