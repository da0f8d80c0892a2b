// How long a person waits for the sign window: from the call of NorvikSignFileJson to the painted dialog, in a process
// that had no window and no toolkit before, on the offscreen platform. Each figure is a median over fresh processes.

#include <dlfcn.h>
#include <norvik/norvik.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Pki.h"
#include "tests/support/Process.h"

namespace {

constexpr int kRuns = 11;
constexpr const char* kObserver = NORVIK_BENCH_PLUGINS "/generic/libnorvik_bench_painted.so";

[[noreturn]] void Fail(const std::string& reason) {
    std::cerr << reason << "\n";
    std::exit(1);
}

void MarkStart() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const auto text = std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
    setenv("NORVIK_BENCH_START", text.c_str(), 1);
}

template <typename Function>
Function* Load(const char* library, const char* name) {
    void* const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) Fail(dlerror());
    auto* const function = reinterpret_cast<Function*>(dlsym(handle, name));
    if (function == nullptr) Fail(dlerror());
    return function;
}

// --- One process each ---

int SignFile(const std::string& file) {
    auto* const sign = Load<decltype(NorvikSignFileJson)>(NORVIK_BENCH_LIBRARY, "NorvikSignFileJson");
    const std::string request = R"({"SignFile": ")" + file + R"(", "SignMode": 2})";
    const std::u16string text(request.begin(), request.end());
    MarkStart();
    sign(
        text.c_str(), [](auto...) {}, 0);
    return 0;
}

int Toolkit(bool window) {
    MarkStart();
    Load<void(bool)>(kObserver, "StartToolkit")(window);
    return 0;
}

// --- All of them ---

using Figures = std::vector<double>;  // milliseconds

Figures RunOnce(const std::vector<std::string>& arguments) {
    const auto run = tests::RunProgram(arguments);
    std::istringstream output(run.output);
    Figures figures;
    for (double value = 0; output >> value;)
        figures.push_back(value);
    if (run.status != 0 || figures.empty()) Fail("no window was painted: " + run.Summary());
    for (std::size_t i = 0; i < std::min<std::size_t>(figures.size(), 3); ++i)
        figures[i] /= 1000;
    return figures;
}

// The run in the middle by its first figure.
Figures Median(const std::vector<std::string>& arguments, int runs = kRuns) {
    std::vector<Figures> all;
    RunOnce(arguments);  // warms the page cache
    for (int i = 0; i < runs; ++i)
        all.push_back(RunOnce(arguments));
    std::sort(all.begin(), all.end());
    return all[all.size() / 2];
}

void InstallSigners(const tests::Profile& profile, int count) {
    static const auto ca = tests::Issue({.subject = {{"CN", "Издател на удостоверения"}}, .ca = true});
    const auto key = tests::TestKey(tests::KeyType::p256);
    for (int i = 0; i < count; ++i) {
        const auto name = "Иван Петров Димитров " + std::to_string(i);
        tests::InstallCertificate(profile, "MY", tests::Issue({.subject = {{"CN", name}}, .key = key}, ca), true);
    }
}

void Report(const char* what, double milliseconds, double target = 0) {
    std::printf("%-66s %8.1f ms", what, milliseconds);
    if (target > 0) std::printf("   target %.0f ms: %s", target, milliseconds <= target ? "met" : "missed");
    std::printf("\n");
    std::fflush(stdout);
}

void MeasureAll(const std::string& self) {
    tests::Profile profile;
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    setenv("QT_PLUGIN_PATH", NORVIK_BENCH_PLUGINS, 1);
    const auto toolkit = Median({self, "toolkit"}).front();
    setenv("QT_QPA_GENERIC_PLUGINS", "norvikpainted", 1);
    const auto window = Median({self, "window"}).front();
    Report("toolkit: loaded, application object made", toolkit);
    Report("toolkit: the same and a dialog with one text painted", window);

    const auto file = profile.Write("work/letter", "text").string();
    InstallSigners(profile, 3);
    const auto few = Median({self, "sign", file}).front();
    Report("from NorvikSignFileJson to the painted window, 3 certificates", few, 150);
    Report("  of which not the toolkit's start", few - toolkit);

    InstallSigners(profile, 1997);
    setenv("NORVIK_BENCH_SCROLL", "1", 1);
    const auto many = Median({self, "sign", file}, 5);
    Report("the same, 2000 certificates", many.front(), 1000);
    if (many.size() < 4) Fail("the list of 2000 did not scroll");
    std::printf("%.0f pages turned:\n", many[3]);
    Report("  one page, median", many[1]);
    Report("  one page, longest", many[2], 16);
}

}  // namespace

int main(int count, char** values) try {
    const std::vector<std::string> arguments(values + 1, values + count);
    if (arguments.empty()) {
        MeasureAll(std::filesystem::canonical("/proc/self/exe"));
        return 0;
    }
    if (arguments[0] == "toolkit" || arguments[0] == "window") return Toolkit(arguments[0] == "window");
    if (arguments[0] == "sign" && arguments.size() == 2) return SignFile(arguments[1]);
    return 2;
} catch (const std::exception& error) {
    Fail(error.what());
}
