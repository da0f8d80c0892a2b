#include <locale.h>
#include <wctype.h>

#include "platform/Text.h"

namespace platform {
namespace {

// The letters of all scripts, whatever locale the process runs in.
locale_t AllLetters() {
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
}

char16_t Narrowed(wint_t mapped, char16_t original) {
    return mapped <= 0xFFFF ? static_cast<char16_t>(mapped) : original;
}

}  // namespace

char16_t CharLowerW(char16_t c) {
    const locale_t locale = AllLetters();
    return locale == nullptr ? c : Narrowed(towlower_l(c, locale), c);
}

char16_t CharUpperW(char16_t c) {
    const locale_t locale = AllLetters();
    return locale == nullptr ? c : Narrowed(towupper_l(c, locale), c);
}

}  // namespace platform
