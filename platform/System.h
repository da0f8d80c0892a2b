#pragma once
// Folders, clock, identity and modules of the host.

#include <ctime>
#include <filesystem>
#include <optional>
#include <string>

#include "platform/Types.h"

namespace platform {

// The private temp folder: $TMPDIR, else $XDG_RUNTIME_DIR, else one under /tmp named for the user (made here, mode
// 0700). A shared $TMPDIR such as /tmp itself is answered with the private folder below it. Empty with
// ERROR_ACCESS_DENIED if $TMPDIR or the private folder belongs to somebody else, or others could put files in it.
std::filesystem::path GetTempPathW();

// Folders of the user by the XDG base directory rules (absolute values only, $HOME as base); empty if there is no home.
std::filesystem::path DataFolder();    // $XDG_DATA_HOME/norvik
std::filesystem::path ConfigFolder();  // $XDG_CONFIG_HOME/norvik
std::filesystem::path CacheFolder();   // $XDG_CACHE_HOME/norvik
// What the machine's administrator decides: /etc/norvik, or $NORVIK_MACHINE_DIR for a process without special rights.
std::filesystem::path MachineFolder();

// A random UUID (RFC 4122 version 4) in lower case with hyphens; empty if the host has no randomness.
std::u16string UuidCreate();
// Fills with bytes of the host's random generator. False if it has none.
bool BCryptGenRandom(std::span<std::uint8_t> bytes);

FILETIME GetSystemTimeAsFileTime();

struct SYSTEMTIME {
    int wYear = 0, wMonth = 0, wDayOfWeek = 0, wDay = 0, wHour = 0, wMinute = 0, wSecond = 0, wMilliseconds = 0;
};
SYSTEMTIME FileTimeToSystemTime(FILETIME moment);
// Shifts a moment to the local wall clock as it stood at that moment, daylight saving included.
FILETIME FileTimeToLocalFileTime(FILETIME moment);

// For a program that ends after one operation, before anything else of the platform: what the crypto library holds at
// the end goes with the process, in no time; the library would give it back piece by piece.
void LeaveCleaningToTheHost();

// The path of this process's executable, and of the library that holds the given address.
std::filesystem::path GetModuleFileNameW();
std::filesystem::path ModuleOfAddress(const void* address);

}  // namespace platform
