#include "tools/norvik/Command.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iostream>
#include <iterator>

#include "crypt/CryptCertificate.h"
#include "platform/Registry.h"
#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/settings/Settings.h"
#include "src/settings/TsaList.h"

namespace cli {

void PrintLine(std::string_view utf8) {
    std::fwrite(utf8.data(), 1, utf8.size(), stdout);
    std::fputc('\n', stdout);
}

int Fail(std::string_view utf8, int status) {
    std::fflush(stdout);
    std::fwrite(utf8.data(), 1, utf8.size(), stderr);
    std::fputc('\n', stderr);
    return status;
}

void RefuseToReplace(const std::filesystem::path& result, std::initializer_list<std::filesystem::path> inputs) {
    for (const auto& input : inputs) {
        std::error_code error;
        if (std::filesystem::equivalent(result, input, error))
            throw WrongUse(result.string() + ": резултатът би заменил този файл. Посочете друго име.");
    }
}

// Byte by byte from the descriptor: a stream would keep a copy of the secret in its buffer.
platform::Secret ReadSecretLine() {
    constexpr std::size_t longest = 4096;
    platform::Bytes line;
    line.reserve(longest);  // long enough never to move, so that no copy stays behind
    char c = 0;
    bool any = false;
    while (read(STDIN_FILENO, &c, 1) == 1) {
        any = true;
        if (c == '\n') break;
        if (line.size() == longest) throw WrongUse("Редът от стандартния вход е твърде дълъг.");
        line.push_back(static_cast<std::uint8_t>(c));
    }
    if (!any) throw WrongUse("На стандартния вход няма нищо.");
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return platform::Secret(std::move(line));
}

bool CanAsk() {
    return isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1;
}

std::optional<std::string> AskLine(std::string_view prompt) {
    std::fwrite(prompt.data(), 1, prompt.size(), stderr);
    std::string line;
    if (!std::getline(std::cin, line)) return std::nullopt;
    return line;
}

void WarnOfUnreadableSettings() {
    platform::RegistryKey key;
    const auto code = platform::RegOpenKeyExW(platform::Hive::HKEY_CURRENT_USER, settings::kTsaKey, key);
    const bool noneYet = code == platform::ERROR_FILE_NOT_FOUND || code == platform::ERROR_PATH_NOT_FOUND;
    if (code == platform::ERROR_SUCCESS || noneYet) return;
    Fail("Внимание: настройките не могат да се прочетат и важат тези по подразбиране. " + Explain(code));
}

void WarnOfDamagedAuthorities() {
    std::vector<settings::TsaRecord> list;
    if (settings::LoadTsaListForChange(list) != platform::ERROR_INVALID_DATA) return;
    Fail(
        "Внимание: записаният списък на TSA е повреден и важи само това, което се чете от него.\n"
        "Вижте го с: norvik settings get TSA JSON");
}

std::string WhereDetailsAre() {
    const auto app = CNorvikApp::Current();
    if (app && app->Logger()) return "Причината е записана в Norvik.log.";
    return "Причината не е записана: временната папка не може да се използва за Norvik.log.";
}

CertificateLine Describe(const platform::CertificateContext& certificate) {
    tessaly::CryptCertificate object(certificate, true);
    return {platform::ToUtf8(object.GetThumbprint()), platform::OneLineUtf8(object.GetSubjectName()),
            platform::OneLineUtf8(object.GetIssuerName()), platform::ToUtf8(object.GetValidFrom()),
            platform::ToUtf8(object.GetValidTo())};
}

platform::Bytes Sha1FromThumbprint(const std::string& text) {
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits), [](char c) { return c != ':' && c != ' '; });
    const bool allHex = std::all_of(digits.begin(), digits.end(),
                                    [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
    if (digits.size() != 40 || !allHex) throw WrongUse("Отпечатъкът трябва да е от 40 шестнайсетични цифри: " + text);
    platform::Bytes sha1;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        sha1.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return sha1;
}

}  // namespace cli
