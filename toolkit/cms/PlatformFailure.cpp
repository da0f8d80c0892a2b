#include "toolkit/cms/PlatformFailure.h"

#include <cstdio>
#include <string>

#include "platform/Text.h"

namespace toolkit::cms {

void LogPlatformFailure(OperationLog& log, std::string_view message) {
    LogPlatformFailure(log, platform::GetLastError(), message);
}

void LogPlatformFailure(OperationLog& log, platform::ErrorCode code, std::string_view message) {
    char number[16];
    std::snprintf(number, sizeof number, "0x%08x", static_cast<unsigned>(code));
    std::string text = platform::ToUtf8(platform::FormatMessageW(code));
    while (!text.empty() && (text.back() == '\r' || text.back() == '\n'))
        text.pop_back();
    log.Line(message);
    log.Value("platformError", text.empty() ? std::string(number) : std::string(number) + " " + text);
}

}  // namespace toolkit::cms
