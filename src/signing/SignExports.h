#pragma once
// The forms in which callers ask for the signing of one file.

#include <cstdint>
#include <filesystem>

#include "norvik/norvik.h"

namespace signing {

// By JSON, here or through the launcher. `library`: where the exported functions come from. True only where the
// signing ran to its end in this process.
bool SignFileJson(const std::filesystem::path& library, const char16_t* request, NorvikJsonCallback callback,
                  std::uint64_t context);

// What NorvikSignFileJson is for the shells below.
using SignJson = bool (*)(const char16_t* request, NorvikJsonCallback callback, std::uint64_t context);

// By plain arguments; the last three may be null. The path of the result goes to `result`, an empty text where the
// engine failed. `tsa` counts for nothing: the authorities are those of the settings.
bool SignFileByArguments(SignJson sign, const char16_t* file, int mode, char16_t* result, const char16_t* thumbprints,
                         const char16_t* tsa);

}  // namespace signing
