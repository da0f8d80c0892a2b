// norvik-test-tsa: a timestamp authority on loopback for demonstrations, until SIGTERM.

#include <openssl/pem.h>
#include <pthread.h>

#include <csignal>
#include <fstream>
#include <iostream>
#include <string_view>

#include "platform/posix/OpenSsl.h"
#include "tests/support/PkiFault.h"
#include "tests/support/TsaServer.h"

namespace {

struct Arguments {
    std::string certificate, key, chain, portFile, user;
    bool passwordFromInput = false;
};

std::optional<Arguments> Parse(int count, char** values) {
    Arguments arguments;
    const std::map<std::string_view, std::string*> options = {{"--certificate", &arguments.certificate},
                                                              {"--key", &arguments.key},
                                                              {"--chain", &arguments.chain},
                                                              {"--port-file", &arguments.portFile},
                                                              {"--user", &arguments.user}};
    for (int i = 1; i < count; ++i) {
        const auto option = options.find(values[i]);
        if (option != options.end() && i + 1 < count) {
            *option->second = values[++i];
        } else if (std::string_view(values[i]) == "--password-stdin") {
            arguments.passwordFromInput = true;
        } else {
            return std::nullopt;
        }
    }
    if (arguments.certificate.empty() || arguments.key.empty()) return std::nullopt;
    if (arguments.user.empty() == arguments.passwordFromInput) return std::nullopt;
    return arguments;
}

platform::posix::BioPtr Open(const std::string& path) {
    platform::posix::BioPtr bio(BIO_new_file(path.c_str(), "r"));
    tests::Require(bio != nullptr, path.c_str());
    return bio;
}

std::vector<tests::Certificate> ReadCertificates(const std::string& path) {
    const auto bio = Open(path);
    std::vector<tests::Certificate> certificates;
    while (const platform::posix::X509Ptr each{PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)})
        certificates.emplace_back(platform::posix::EncodeDer<i2d_X509>(each.get()));
    if (certificates.empty()) throw std::runtime_error("no certificate in " + path);
    return certificates;
}

tests::Certificate ReadAuthority(const Arguments& arguments) {
    const auto bio = Open(arguments.key);
    const tests::Key key(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
    tests::Require(key != nullptr, "key of the authority");
    return tests::Certificate(ReadCertificates(arguments.certificate).front().Der(), key);
}

// Whoever waits for the file must never read half a number.
void WritePort(const std::string& path, std::uint16_t port) {
    std::ofstream(path + ".new") << port << "\n";
    std::filesystem::rename(path + ".new", path);
}

int Serve(const Arguments& arguments) {
    tests::TsaBehaviour behaviour;
    if (arguments.passwordFromInput) {
        std::string password;
        std::getline(std::cin, password);
        behaviour.credentials = arguments.user + ":" + password;
    }
    // Blocked before the first thread starts, so that all of them leave the signals to sigwait.
    sigset_t ends;
    sigemptyset(&ends);
    for (const int signal : {SIGTERM, SIGINT})
        sigaddset(&ends, signal);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    const auto chain = arguments.chain.empty() ? std::vector<tests::Certificate>{} : ReadCertificates(arguments.chain);
    const tests::TsaServer server(ReadAuthority(arguments), chain, behaviour);
    std::cout << server.Url() << std::endl;
    if (!arguments.portFile.empty()) WritePort(arguments.portFile, server.Port());
    int signal = 0;
    sigwait(&ends, &signal);
    return 0;
}

}  // namespace

int main(int count, char** values) {
    const std::optional<Arguments> arguments = Parse(count, values);
    if (!arguments) {
        std::cerr << "norvik-test-tsa --certificate FILE --key FILE [--chain FILE] [--port-file FILE] "
                     "[--user NAME --password-stdin]\n";
        return 2;
    }
    try {
        return Serve(*arguments);
    } catch (const std::exception& error) {
        std::cerr << "norvik-test-tsa: " << error.what() << "\n";
        return 1;
    }
}
