#include "platform/posix/Locale.h"

#include <langinfo.h>

#include <cstdlib>
#include <mutex>

namespace platform::posix {

std::string LocaleName(const char* categoryVariable) {
    for (const char* variable : {"LC_ALL", categoryVariable, "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') return value;
    }
    return "C";
}

bool IsPortableLocale(const std::string& name) {
    const std::string language = name.substr(0, name.find_first_of(".@"));
    return language == "C" || language == "POSIX";
}

namespace {

std::string LookUpCharset(const std::string& localeName) {
    std::string charset;
    if (const Locale installed(LC_CTYPE_MASK, localeName); installed.Get() != nullptr) {
        charset = nl_langinfo_l(CODESET, installed.Get());
    } else if (const auto dot = localeName.find('.'); dot != std::string::npos) {
        charset = localeName.substr(dot + 1, localeName.find('@', dot) - dot - 1);
    }
    if (charset.empty() || charset == "ANSI_X3.4-1968" || charset == "US-ASCII") return "UTF-8";
    return charset;
}

}  // namespace

std::string CharsetOf(const std::string& localeName) {
    // The last answer is kept: loading a locale reads its files, and the name hardly ever changes. Never freed, because
    // texts are still converted while the process ends.
    struct Kept {
        std::mutex mutex;
        std::string name, charset;
    };
    static Kept& kept = *new Kept;
    const std::lock_guard lock(kept.mutex);
    if (kept.charset.empty() || kept.name != localeName) {
        kept.charset = LookUpCharset(localeName);
        kept.name = localeName;
    }
    return kept.charset;
}

}  // namespace platform::posix
