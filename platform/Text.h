#pragma once
// Code pages, dates and messages of the host. Text is UTF-16 above this line and UTF-8 at the edges of the host.

#include <optional>
#include <string>
#include <string_view>

#include "platform/Error.h"
#include "platform/Types.h"

namespace platform {

constexpr std::uint32_t CP_ACP = 0;
constexpr std::uint32_t CP_THREAD_ACP = 3;  // the charset of the process's locale
constexpr std::uint32_t CP_1251 = 1251;
constexpr std::uint32_t CP_UTF8 = 65001;

// The whole text or nothing: a byte that the code page does not know fails with ERROR_NO_UNICODE_TRANSLATION.
// An empty text converts to an empty text.
std::optional<std::u16string> MultiByteToWideChar(std::uint32_t codePage, std::string_view text);
// The same in the other direction; a character that the code page lacks becomes '?', as narrow texts have it.
std::string WideCharToMultiByte(std::uint32_t codePage, std::u16string_view text);

// UTF-8 to UTF-16 and back, never failing: what is malformed (also an unpaired surrogate) becomes U+FFFD.
std::u16string ToWide(std::string_view utf8);
std::string ToUtf8(std::u16string_view text);
// The same for a name that is shown on a terminal: U+FFFD stands for control characters, line ends and what turns the
// direction of writing. Whoever made a certificate or a token chose its names, and one of them could pass for lines of
// ours.
std::string OneLineUtf8(std::u16string_view text);

// One letter in the other case, in every script; what has no other case stays.
char16_t CharLowerW(char16_t c);
char16_t CharUpperW(char16_t c);

// The short date of the user's locale (LC_TIME) for a local date; "01.03.2024 г." for bg_BG, ISO 8601 for C and POSIX.
std::u16string GetDateFormatW(int year, int month, int day);

// One English sentence with CR LF for each code that the services here can give; empty for others.
std::u16string FormatMessageW(ErrorCode code);

}  // namespace platform
