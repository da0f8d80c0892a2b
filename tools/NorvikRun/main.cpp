// The launcher of the signing relay: runs one request of the library beside it in a process of its own.
//   NorvikRun.exe REQUEST-FILE

#include <dlfcn.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

namespace {

using RunRequest = void (*)(void* window, void* instance, const char16_t* requestFile, int show);

// The path comes without quotes: blanks in it have split it.
std::string RestOfCommandLine(int count, char** arguments) {
    std::string rest;
    for (int i = 1; i < count; ++i)
        rest += (i > 1 ? " " : "") + std::string(arguments[i]);
    return rest;
}

int Run(const std::string& requestFile) {
    // Only the library that the launcher was put beside, whatever the environment says.
    const auto library = std::filesystem::read_symlink("/proc/self/exe").replace_filename("libNorvik.so");
    void* const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    const auto run = handle != nullptr ? reinterpret_cast<RunRequest>(dlsym(handle, "NorvikSignRunDllW")) : nullptr;
    if (run == nullptr) {
        std::fprintf(stderr, "NorvikRun.exe: %s\n", dlerror());
        return 1;
    }
    run(nullptr, nullptr, std::filesystem::path(requestFile).u16string().c_str(), 1);
    return 0;
}

}  // namespace

int main(int count, char** arguments) try {
    if (count < 2) {
        std::fputs("NorvikRun.exe REQUEST-FILE\n", stderr);
        return 2;
    }
    return Run(RestOfCommandLine(count, arguments));
} catch (const std::exception& error) {
    std::fprintf(stderr, "NorvikRun.exe: %s\n", error.what());
    return 1;
}
