// norvik-test-tsa: a timestamp authority on loopback for demonstrations, until SIGTERM.

#include <pthread.h>

#include <csignal>
#include <fstream>
#include <iostream>

#include "tests/support/Made.h"
#include "tests/support/PemFile.h"
#include "tests/support/TsaServer.h"

namespace {

using Options = std::map<std::string, std::string>;

// Empty if the arguments are not understood.
Options Parse(int count, char** values) {
    Options options = {{"--certificate", ""}, {"--key", ""}, {"--chain", ""}, {"--port-file", ""}};
    for (int i = 1; i < count; i += 2) {
        if (!options.contains(values[i]) || i + 1 == count) return {};
        options[values[i]] = values[i + 1];
    }
    return options["--certificate"].empty() || options["--key"].empty() ? Options() : options;
}

// The blocks of a PEM file, of which it must hold one at least.
std::vector<tests::PemBlock> Read(const std::string& path) {
    auto blocks = tests::ReadPemFile(path);
    if (blocks.empty()) throw std::runtime_error("nothing in " + path);
    return blocks;
}

tests::Certificate ReadAuthority(const Options& options) {
    const auto key = Read(options.at("--key")).front().der;
    const unsigned char* cursor = key.data();
    return tests::Certificate(
        Read(options.at("--certificate")).front().der,
        tests::Made<EVP_PKEY_free>(d2i_AutoPrivateKey(nullptr, &cursor, static_cast<long>(key.size())), "key"));
}

int Serve(const Options& options) {
    // Blocked before the first thread starts, so that all of them leave the signals to sigwait.
    sigset_t ends;
    sigemptyset(&ends);
    for (const int signal : {SIGTERM, SIGINT})
        sigaddset(&ends, signal);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    std::vector<tests::Certificate> chain;
    if (const auto& file = options.at("--chain"); !file.empty())
        for (const auto& block : Read(file))
            chain.emplace_back(block.der);
    const tests::TsaServer server(ReadAuthority(options), chain);
    std::cout << server.Url() << std::endl;
    if (const auto& file = options.at("--port-file"); !file.empty()) {
        // Whoever waits for the file must never read half a number.
        std::ofstream(file + ".new") << server.Port() << "\n";
        std::filesystem::rename(file + ".new", file);
    }
    int signal = 0;
    sigwait(&ends, &signal);
    return 0;
}

}  // namespace

int main(int count, char** values) {
    const Options options = Parse(count, values);
    if (options.empty()) {
        std::cerr << "norvik-test-tsa --certificate FILE --key FILE [--chain FILE] [--port-file FILE]\n";
        return 2;
    }
    try {
        return Serve(options);
    } catch (const std::exception& error) {
        std::cerr << "norvik-test-tsa: " << error.what() << "\n";
        return 1;
    }
}
