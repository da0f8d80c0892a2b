#pragma once
// The locale that the environment asks for. The library never calls setlocale: that would change the locale of the
// application that loaded it.

#include <locale.h>

#include <optional>
#include <string>
#include <string_view>

namespace platform::posix {

// The name in force for a category by POSIX precedence: LC_ALL, the category's own variable, LANG; "C" if none is set.
std::string LocaleName(const char* categoryVariable);

// Whether the name stands for the portable locale, also with a charset behind it ("C", "POSIX", "C.UTF-8").
bool IsPortableLocale(const std::string& name);

// The charset of that name: what the installed locale tells, else what stands behind the dot, else UTF-8. The portable
// locale's ASCII counts as UTF-8.
std::string CharsetOf(const std::string& localeName);

// The whole text or nothing, from any charset that the host knows by this name.
std::optional<std::u16string> DecodeCharset(const std::string& charset, std::string_view text);

// An owned locale object, null if the host has no such locale.
class Locale {
  public:
    explicit Locale(int mask, const std::string& name) : locale_(newlocale(mask, name.c_str(), nullptr)) {}
    ~Locale() {
        if (locale_ != nullptr) freelocale(locale_);
    }
    Locale(const Locale&) = delete;
    Locale& operator=(const Locale&) = delete;
    [[nodiscard]] locale_t Get() const { return locale_; }

  private:
    locale_t locale_;
};

}  // namespace platform::posix
