#include "tools/norvik/Command.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iostream>
#include <iterator>

#include "crypt/CryptCertificate.h"
#include "platform/Text.h"

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

std::string Padded(std::string_view utf8, std::size_t columns) {
    std::size_t width = 0;
    for (const char c : utf8)
        width += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
    return std::string(utf8) + std::string(width < columns ? columns - width : 0, ' ');
}

CertificateLine Describe(const platform::CertificateContext& certificate) {
    tessaly::CryptCertificate object(certificate, true);
    return {platform::ToUtf8(object.GetThumbprint()), platform::ToUtf8(object.GetSubjectName()),
            platform::ToUtf8(object.GetIssuerName()), platform::ToUtf8(object.GetValidFrom()),
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
