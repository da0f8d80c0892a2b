// norvik-test-pki DIR: a throw-away PKI with fresh keys for demonstrations. The password of signer.p12 comes on
// standard input.

#include <sys/stat.h>

#include <fstream>
#include <iostream>

#include "tests/support/Pki.h"

namespace {

void WritePki(const std::filesystem::path& folder, const std::string& password) {
    std::filesystem::create_directories(folder);
    const tests::StandardPki pki(tests::KeyType::rsa2048,
                                 [](tests::KeyType type, unsigned) { return tests::GenerateKey(type); });
    const auto pfx = tests::MakePfx({{pki.signer, tests::Certificate(pki.ca.Der())}, password});
    const auto rootCrl = tests::MakeCrl(pki.root), caCrl = tests::MakeCrl(pki.ca);
    const std::map<std::string, std::string> files = {{"root.pem", pki.root.Pem()},
                                                      {"ca.pem", pki.ca.Pem()},
                                                      {"chain.pem", pki.ChainPem()},
                                                      {"signer.pem", pki.signer.Pem()},
                                                      {"signer.key", pki.signer.KeyPem()},
                                                      {"signer.p12", {pfx.begin(), pfx.end()}},
                                                      {"root.crl", {rootCrl.begin(), rootCrl.end()}},
                                                      {"ca.crl", {caCrl.begin(), caCrl.end()}},
                                                      {"tsa.pem", pki.tsa.Pem()},
                                                      {"tsa.key", pki.tsa.KeyPem()}};
    for (const auto& [name, content] : files)
        if (!(std::ofstream(folder / name, std::ios::binary) << content).flush())
            throw std::runtime_error("cannot write " + name);
}

}  // namespace

int main(int count, char** values) {
    if (count != 2 || *values[1] == '-') {
        std::cerr << "norvik-test-pki DIR, with the password of signer.p12 on standard input\n";
        return 2;
    }
    umask(077);
    std::string password;
    std::getline(std::cin, password);
    try {
        WritePki(values[1], password);
    } catch (const std::exception& error) {
        std::cerr << "norvik-test-pki: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
