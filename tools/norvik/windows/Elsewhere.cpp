#include <unistd.h>

#include <filesystem>

#include "platform/System.h"
#include "tools/norvik/Command.h"
#include "tools/norvik/Windows.h"

namespace cli {

void NeedWindows() {
    throw WindowsNeeded();
}

int RunWithWindows(char** arguments) {
    const auto folder = platform::GetModuleFileNameW().parent_path();
    for (const char* const place : {NORVIK_WINDOWS_INSTALLED, NORVIK_WINDOWS_BUILT})
        execv((folder / place / "norvik-windows").c_str(), arguments);
    return Fail("Прозорците на Norvik не са инсталирани.");
}

}  // namespace cli
