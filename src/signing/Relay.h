#pragma once
// Signing in a process of its own: where a launcher stands beside the library, a request goes to it through a file and
// the answer comes back the same way.

#include <cstdint>
#include <filesystem>

#include "norvik/norvik.h"

namespace signing {

// The launcher that a request of this process goes to. Empty: it stays here, because there is no launcher, or because
// this process is the launcher already, or the host that runs library functions. `library`: where the exported
// functions come from.
std::filesystem::path FindLauncher(const std::filesystem::path& library);

// Hands the request over and waits for as long as the launcher runs. The answer, or "Error" and "ErrorString", goes to
// the callback, once. Throws std::runtime_error if the request cannot be written.
void SignThroughLauncher(const std::filesystem::path& launcher, const char16_t* request, NorvikJsonCallback callback,
                         std::uint64_t context);

// The other side: runs the request in the named file and puts the answer in its place, empty if the person cancels.
// Throws std::runtime_error, and leaves the file as it is, if it cannot be read.
void AnswerRelayedRequest(const char16_t* requestFile);

}  // namespace signing
