#pragma once
// The outer side of a toolkit object: UTF-16 in and out over an owned working object.

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "toolkit/ClsBase.h"

namespace toolkit {

class CkObject {
  public:
    virtual ~CkObject() = default;
};

// Keeps the ring of ten result strings: a pointer returned stays valid for the next nine string results of the same
// object. Not protected against a second thread: a thread owns the outer objects that it makes.
class CkWideCharBase : public CkObject {
  public:
    // What was noted during the last operation.
    const char16_t* lastErrorText();
    void put_VerboseLogging(bool verbose) { Working().SetVerboseLogging(verbose); }

  protected:
    [[nodiscard]] virtual ClsBase& Working() = 0;
    // Puts a text into the next slot of the ring; null for no text.
    const char16_t* Result(const std::optional<std::string>& utf8);

    // The same for a text that may hold NUL: it becomes U+FFFD, so that the reader of the pointer misses nothing.
    const char16_t* WholeResult(const std::optional<std::string>& utf8);

    static std::string Utf8(const char16_t* text);  // a null pointer is an empty text

  private:
    std::array<std::u16string, 10> ring_;
    std::size_t slot_ = 0;
};

}  // namespace toolkit
