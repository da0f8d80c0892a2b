#pragma once
// The library as an application loads it, with the person of a test behind its interface, and what its callbacks were
// told, call by call.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <initializer_list>

#include "norvik/norvik.h"
#include "src/Norvik.h"
#include "tests/support/ScriptedInterface.h"

// EXPORT(NorvikInit)(nullptr), where `library_` is loaded
#define EXPORT(name) library_.Export<decltype(name)>(#name)

namespace tests {

class LoadedLibrary {
  public:
    explicit LoadedLibrary(Script& script) : library_(dlopen(NORVIK_BINARY_DIR "/lib/libNorvik.so", RTLD_NOW)) {
        if (library_ == nullptr) throw std::runtime_error(dlerror());
        CNorvikApp::Start(std::make_unique<ScriptedInterface>(script));
    }
    ~LoadedLibrary() {
        CNorvikApp::Stop();
        dlclose(library_);
    }
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;

    template <typename Function>
    [[nodiscard]] Function* Export(const char* name) const {
        void* const address = dlsym(library_, name);
        if (address == nullptr) throw std::runtime_error(dlerror());
        return reinterpret_cast<Function*>(address);
    }

  private:
    void* library_;
};

constexpr std::uint64_t kContext = 0xFEDC'BA98'7654'3210;  // the high word must come back too

// A JSON text, "error|message", or what was told joined by '|'. Not to be used by two threads at once.
inline std::vector<std::string> heard;

inline void HearJson(std::uint64_t context, const char16_t* json) {
    EXPECT_EQ(context, kContext);
    heard.push_back(platform::ToUtf8(json));
}

// An error comes with a message alone; what else is told has none.
inline void HearTexts(std::uint64_t context, bool error, const char16_t* message,
                      std::initializer_list<const char16_t*> texts, const std::string& end = "") {
    EXPECT_EQ(context, kContext);
    EXPECT_EQ(message != nullptr, error);
    std::string joined = error ? "error|" + platform::ToUtf8(message) : "";
    for (const auto* text : texts) {
        EXPECT_EQ(text == nullptr, error);
        if (!error) (joined += joined.empty() ? "" : "|") += platform::ToUtf8(text);
    }
    heard.push_back(error ? joined : joined + end);
}
inline void HearRecord(std::uint64_t context, bool error, const char16_t* message, const char16_t* name,
                       const char16_t* from, const char16_t* to, const char16_t* thumbprint, const char16_t* issuer) {
    HearTexts(context, error, message, {name, from, to, thumbprint, issuer});
}
inline void HearRecordFlag(std::uint64_t context, bool error, const char16_t* message, const char16_t* name,
                           const char16_t* from, const char16_t* to, const char16_t* thumbprint, const char16_t* issuer,
                           bool flag) {
    HearTexts(context, error, message, {name, from, to, thumbprint, issuer}, flag ? "|true" : "|false");
}
inline void HearSignature(std::uint64_t context, int error, const char16_t* message, int reserved, const char16_t* time,
                          int failed, const char16_t* text, const char16_t* subject, const char16_t* from,
                          const char16_t* to, const char16_t* thumbprint, const char16_t* issuer) {
    EXPECT_EQ(reserved, 0);
    EXPECT_TRUE(error == 0 || error == 1);
    HearTexts(context, error == 1, message, {time, text, subject, from, to, thumbprint, issuer},
              "|" + std::to_string(failed));
}

}  // namespace tests
