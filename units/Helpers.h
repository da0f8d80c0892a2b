#pragma once
// Small texts that messages are made of.

#include <optional>
#include <string>
#include <string_view>

namespace units {

// The file name part of a source path, the line and the text: "Norvik:138\r\n\r\n...".
std::u16string SourceMarkedText(std::u16string_view sourcePath, int line, std::u16string_view text);

// Text of a caller in the charset of the process's locale. Nothing for a null pointer, for text over 0x3ffffffe bytes
// and for bytes that the charset does not know.
std::optional<std::u16string> WideFromNarrow(const char* text);

// The text of an exception, which is UTF-8 where it comes from here and in the locale's charset where the host wrote
// it.
std::u16string WideFromWhat(const char* what);

// A message from the string table; empty for a number that has none.
std::u16string LoadStringW(unsigned id);
// The same with every %1 replaced.
std::u16string FormatString1(unsigned id, std::u16string_view argument);

}  // namespace units
