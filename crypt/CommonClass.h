#pragma once
// The root of the object layer: each object keeps the platform's code of its last failure and can turn it into text.

#include <cstdint>
#include <string>

namespace tessaly {

// "Msg: ", the platform's sentence, a line feed, "Error 0x" and the code in lower-case hexadecimal; the last part alone
// for a code without a sentence; empty for 0.
std::u16string FormatErrorText(std::uint32_t code);

class CommonClass {
  public:
    virtual ~CommonClass() = default;
    // "File - ", "Line - " and the error text, each on a line.
    [[nodiscard]] virtual std::u16string FormatErrorAt(const std::u16string& file, int line) const;
    [[nodiscard]] virtual std::u16string GetErrorText() const;

    std::uint32_t lastError = 0;
};

}  // namespace tessaly
