// How values become words for a person at the terminal.

#include <algorithm>
#include <array>
#include <cstdio>

#include "platform/Keys.h"
#include "platform/Text.h"
#include "tools/norvik/Command.h"

namespace cli {
namespace {

struct Reason {
    platform::ErrorCode code;
    const char* text;
};

constexpr Reason kReasons[] = {
    {platform::ERROR_FILE_NOT_FOUND, "Няма такъв файл."},
    {platform::ERROR_PATH_NOT_FOUND, "Няма такава папка."},
    {platform::ERROR_ACCESS_DENIED, "Достъпът е отказан."},
    {platform::ERROR_DIRECTORY, "Това е папка, а не файл."},
    {platform::ERROR_INVALID_DATA, "Това не е обикновен файл."},
    {platform::ERROR_FILE_INVALID, "Файлът е твърде голям."},
    {platform::ERROR_FILE_TOO_LARGE, "Файлът би надхвърлил допустимия размер."},
    {platform::ERROR_DISK_FULL, "Няма място на диска."},
    {platform::ERROR_WRITE_FAULT, "Грешка при запис."},
    {platform::ERROR_READ_FAULT, "Грешка при четене."},
    {platform::ERROR_HANDLE_EOF, "Файлът се промени, докато се четеше."},
    {platform::ERROR_FILENAME_EXCED_RANGE, "Името на файла е твърде дълго."},
    {platform::ERROR_NOT_ENOUGH_MEMORY, "Паметта не достига."},
    {platform::ERROR_BUSY, "Зает е от друга програма."},
    {platform::ERROR_REGISTRY_CORRUPT, "Файлът с настройките е повреден."},
    {platform::ERROR_REGISTRY_IO_FAILED, "Файлът с настройките не може да се прочете или запише."},
    {platform::ERROR_INTERNET_TIMEOUT, "Сървърът не отговори навреме."},
    {platform::ERROR_INTERNET_INVALID_URL, "Адресът на сървъра е неправилен."},
    {platform::ERROR_INTERNET_NAME_NOT_RESOLVED, "Името на сървъра не е намерено в мрежата."},
    {platform::ERROR_INTERNET_CANNOT_CONNECT, "Няма връзка със сървъра."},
    {platform::ERROR_INTERNET_CONNECTION_ABORTED, "Връзката със сървъра прекъсна."},
    {platform::ERROR_HTTP_REDIRECT_FAILED, "Сървърът препраща към адрес, който не се приема."},
    {platform::ERROR_MORE_DATA, "Отговорът на сървъра е твърде голям."},
    {platform::CRYPT_E_BAD_ENCODE, "Данните са повредени."},
    {platform::ERROR_INTERNET_SECURE_FAILURE, "Сигурната връзка със сървъра не може да се установи."},
    {platform::CRYPT_E_NO_KEY_PROPERTY, "Сертификатът няма частен ключ."},
};

}  // namespace

std::string Explain(platform::ErrorCode code) {
    const auto* found = std::ranges::find(kReasons, code, &Reason::code);
    if (found != std::end(kReasons)) return found->text;
    if (const auto fromKey = platform::TokenErrorMessage(code); !fromKey.empty()) return platform::ToUtf8(fromKey);
    if (code == platform::ERROR_SUCCESS) return {};
    std::array<char, 32> number{};
    std::snprintf(number.data(), number.size(), "Код 0x%08x.", static_cast<unsigned>(code));
    return number.data();
}

std::string ShownTime(std::string_view asn1) {
    const auto digits =
        static_cast<std::size_t>(std::ranges::find_if(asn1, [](char c) { return c < '0' || c > '9'; }) - asn1.begin());
    const bool whole = (digits == 12 || digits == 14) && asn1.ends_with('Z') &&
                       asn1.find_first_not_of(".0123456789", digits) == asn1.size() - 1;
    if (!whole) return platform::OneLineUtf8(platform::ToWide(asn1));
    std::string year(asn1.substr(0, digits - 10));
    if (year.size() == 2) year = (year < "50" ? "20" : "19") + year;
    const auto part = [rest = asn1.substr(digits - 10)](std::size_t i) { return std::string(rest.substr(i * 2, 2)); };
    const auto fraction = asn1.substr(digits, asn1.size() - digits - 1);
    return year + "-" + part(0) + "-" + part(1) + " " + part(2) + ":" + part(3) + ":" + part(4) +
           std::string(fraction) + " UTC";
}

std::string Padded(std::string_view utf8, std::size_t columns) {
    std::size_t width = 0;
    for (const char c : utf8)
        width += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
    return std::string(utf8) + std::string(width < columns ? columns - width : 0, ' ');
}

}  // namespace cli
