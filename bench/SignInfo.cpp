// norvik-bench-signinfo SIGNATURE [DATA]: asks the library once for the verdicts on a file, as an application does, and
// prints the answer. Exit status 1 if a signature is not good.

#include <cstdio>
#include <string>

#include "norvik/norvik.h"

namespace {

// Paths of a benchmark need no escaping and are ASCII.
std::u16string Request(int count, char** values) {
    std::string text = std::string("{\"SignFile\":\"") + values[1] + "\"";
    if (count > 2) text += std::string(",\"DataFile\":\"") + values[2] + "\"";
    text += "}";
    return {text.begin(), text.end()};
}

void Keep(std::uint64_t answer, const char16_t* json) {
    for (; *json != 0; ++json)
        *reinterpret_cast<std::string*>(answer) += *json < 0x80 ? static_cast<char>(*json) : '?';
}

}  // namespace

int main(int count, char** values) {
    if (count < 2) return 2;
    std::string answer;
    NorvikSignInfoJson(Request(count, values).c_str(), Keep, reinterpret_cast<std::uint64_t>(&answer));
    std::puts(answer.c_str());
    return answer.find("\"SignStatus\": \"ok\"") != std::string::npos ? 0 : 1;
}
