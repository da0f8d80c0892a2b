// norvik-test-pki DIR: a throw-away PKI with fresh keys for demonstrations. The password of signer.p12 comes on
// standard input.

#include <sys/stat.h>

#include <fstream>
#include <iostream>
#include <stdexcept>

#include "tests/support/Pki.h"

namespace {

void Write(const std::filesystem::path& path, std::string_view content) {
    std::ofstream file(path, std::ios::binary);
    if (!file.write(content.data(), static_cast<std::streamsize>(content.size())).flush())
        throw std::runtime_error("cannot write " + path.string());
}

void WritePki(const std::filesystem::path& folder, const std::string& password) {
    std::filesystem::create_directories(folder);
    const tests::StandardPki pki(tests::KeyType::rsa2048,
                                 [](tests::KeyType type, unsigned) { return tests::GenerateKey(type); });
    Write(folder / "root.pem", pki.root.Pem());
    Write(folder / "ca.pem", pki.ca.Pem());
    Write(folder / "chain.pem", pki.ChainPem());
    Write(folder / "signer.pem", pki.signer.Pem());
    Write(folder / "signer.key", pki.signer.KeyPem());
    const tests::Bytes pfx = tests::MakePfx({{pki.signer, tests::Certificate(pki.ca.Der())}, password});
    Write(folder / "signer.p12", platform::AsText(pfx));
    Write(folder / "root.crl", platform::AsText(tests::MakeCrl(pki.root)));
    Write(folder / "ca.crl", platform::AsText(tests::MakeCrl(pki.ca)));
    Write(folder / "tsa.pem", pki.tsa.Pem());
    Write(folder / "tsa.key", pki.tsa.KeyPem());
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
