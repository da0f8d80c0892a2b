#pragma once
// Other programs.

#include <filesystem>
#include <string>

#include "platform/Error.h"

namespace platform {

// Starts a program with one argument in a folder, with the caller's standard streams and environment and no other file
// of its, and waits for its end without limit; how it ends is not looked at. ERROR_SUCCESS if it started, else why not.
ErrorCode RunAndWait(const std::filesystem::path& program, const std::string& name, const std::string& argument,
                     const std::filesystem::path& folder);

}  // namespace platform
