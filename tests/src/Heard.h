#pragma once
// What callbacks of every kind were told, call by call.

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "platform/Text.h"

namespace tests {

constexpr std::uint64_t kContext = 0xFEDC'BA98'7654'3210;  // the high word must come back too

// A JSON text, "error|message", or what was told joined by '|'. Not to be used by two threads at once.
inline std::vector<std::string> heard;

inline void HearJson(std::uint64_t context, const char16_t* json) {
    EXPECT_EQ(context, kContext);
    heard.push_back(platform::ToUtf8(json));
}

// An error comes with a message alone; what else is told has none.
inline void HearTexts(std::uint64_t context, bool error, const char16_t* message,
                      std::initializer_list<const char16_t*> texts) {
    EXPECT_EQ(context, kContext);
    EXPECT_EQ(message != nullptr, error);
    std::string joined = error ? "error|" + platform::ToUtf8(message) : "";
    for (const auto* text : texts) {
        EXPECT_EQ(text == nullptr, error);
        if (!error) (joined += joined.empty() ? "" : "|") += platform::ToUtf8(text);
    }
    heard.push_back(joined);
}
inline void HearRecord(std::uint64_t context, bool error, const char16_t* message, const char16_t* name,
                       const char16_t* from, const char16_t* to, const char16_t* thumbprint, const char16_t* issuer) {
    HearTexts(context, error, message, {name, from, to, thumbprint, issuer});
}
inline void HearRecordFlag(std::uint64_t context, bool error, const char16_t* message, const char16_t* name,
                           const char16_t* from, const char16_t* to, const char16_t* thumbprint, const char16_t* issuer,
                           bool flag) {
    HearRecord(context, error, message, name, from, to, thumbprint, issuer);
    if (!error) heard.back() += flag ? "|true" : "|false";
}
inline void HearSignature(std::uint64_t context, int error, const char16_t* message, int reserved, const char16_t* time,
                          int failed, const char16_t* text, const char16_t* subject, const char16_t* from,
                          const char16_t* to, const char16_t* thumbprint, const char16_t* issuer) {
    EXPECT_EQ(reserved, 0);
    HearTexts(context, error == 1, message, {time, text, subject, from, to, thumbprint, issuer});
    if (error == 0) heard.back() += "|" + std::to_string(failed);
}

}  // namespace tests
