// Signing and checking a small file inside one process, beside the bare operations that it cannot do without. The
// ratios are what counts; bench/peers compares them with their targets.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <span>
#include <thread>

#include "platform/Chains.h"
#include "platform/posix/OpenSsl.h"
#include "tests/support/Pki.h"
#include "toolkit/CkCertW.h"
#include "toolkit/CkCrypt2W.h"
#include "toolkit/cms/Findings.h"

namespace {

using platform::posix::EvpKeyContextPtr;

constexpr const char16_t* kAttributes =
    u"{\"contentType\":true,\"signingTime\":true,\"messageDigest\":true,\"signingCertificateV2\":true}";

constexpr std::size_t kContent = 10 << 10;

[[noreturn]] void Fail(const std::string& reason) {
    std::cerr << reason << "\n";
    std::exit(1);
}

std::u16string Wide(const std::string& ascii) {
    return {ascii.begin(), ascii.end()};
}

// In memory where the host has such a folder: what a disk's file system does with many short-lived files would hide
// what the library does.
std::unique_ptr<tests::Profile> MakeProfile() {
    constexpr const char* kMemory = "/dev/shm";
    if (std::filesystem::is_directory(kMemory)) setenv("TMPDIR", kMemory, 1);
    return std::make_unique<tests::Profile>();
}

// A user with a signer, and a file of 10 KiB with its signature.
struct Desk {
    Desk() {
        pki.Install(*profile);
        // A folder that changed a moment ago is read anew at each use; nobody signs in that moment.
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        file = profile->Write("work/letter", std::string(kContent, 'n'));
        thumbprint = Wide(pki.signer.Thumbprint());
        Sign(true);
        Sign(false);
    }
    [[nodiscard]] std::filesystem::path Attached() const { return file.string() + ".p7m"; }
    [[nodiscard]] std::filesystem::path Detached() const { return file.string() + ".p7s"; }

    // One signature as an application makes it: look the certificate up, set the options, write the file.
    void Sign(bool attached) const {
        toolkit::CkCertW certificate;
        toolkit::CkCrypt2W crypt;
        crypt.put_CadesEnabled(true);
        crypt.put_IncludeCertChain(true);
        crypt.put_SigningAttributes(kAttributes);
        const bool ready =
            certificate.LoadByThumbprint(thumbprint.c_str(), u"hex") && crypt.SetSigningCert(certificate);
        const std::u16string input = file.u16string();
        const bool made = ready && (attached ? crypt.CreateP7M(input.c_str(), Attached().u16string().c_str())
                                             : crypt.CreateP7S(input.c_str(), Detached().u16string().c_str()));
        if (!made) Fail("cannot sign: " + crypt.Implementation().LastErrorText());
    }

    std::unique_ptr<tests::Profile> profile = MakeProfile();
    tests::StandardPki pki;
    std::filesystem::path file;
    std::u16string thumbprint;
};

const Desk& TheDesk() {
    static const Desk desk;
    return desk;
}

void BareRsaSignature(benchmark::State& state) {
    const tests::Key& key = TheDesk().pki.signer.PrivateKey();
    const EvpKeyContextPtr context(EVP_PKEY_CTX_new(key.get(), nullptr));
    const std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    std::array<unsigned char, 256> signature{};
    if (EVP_PKEY_sign_init(context.get()) != 1 || EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) != 1)
        Fail("no bare signature");
    for (auto _ : state) {
        std::size_t size = signature.size();
        if (EVP_PKEY_sign(context.get(), signature.data(), &size, digest.data(), digest.size()) != 1)
            Fail("no signature");
    }
}
BENCHMARK(BareRsaSignature);

// What a program that signs files cannot do without: it reads one file and puts another in the place of the old
// signature as a whole.
void ReplaceFile(const std::string& input, const std::string& hidden, const std::string& output,
                 std::span<std::uint8_t> bytes, std::size_t content) {
    const int in = open(input.c_str(), O_RDONLY | O_CLOEXEC);
    const int out = open(hidden.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    struct stat status {};
    const bool done = fstat(in, &status) == 0 && pread(in, bytes.data(), content, 0) == static_cast<ssize_t>(content) &&
                      pwrite(out, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()) &&
                      rename(hidden.c_str(), output.c_str()) == 0;
    close(in);
    close(out);
    if (!done) Fail("no file");
}

// The floor under SignTenKiB: the bare signature with the hashing and the files.
void BareRsaSignatureWithFiles(benchmark::State& state) {
    const EvpKeyContextPtr context(EVP_PKEY_CTX_new(TheDesk().pki.signer.PrivateKey().get(), nullptr));
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    std::array<unsigned char, 256> signature{};
    std::vector<std::uint8_t> file(std::filesystem::file_size(TheDesk().Attached()));
    const std::string input = TheDesk().file.string(), output = input + ".bare", hidden = output + ".new";
    if (EVP_PKEY_sign_init(context.get()) != 1 || EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) != 1)
        Fail("no bare signature");
    for (auto _ : state) {
        std::size_t size = signature.size();
        SHA256(file.data(), kContent, digest.data());
        if (EVP_PKEY_sign(context.get(), signature.data(), &size, digest.data(), digest.size()) != 1)
            Fail("no signature");
        ReplaceFile(input, hidden, output, file, kContent);
    }
}
BENCHMARK(BareRsaSignatureWithFiles);

void SignTenKiB(benchmark::State& state) {
    for (auto _ : state)
        TheDesk().Sign(true);
}
BENCHMARK(SignTenKiB);

void SignTenKiBDetached(benchmark::State& state) {
    for (auto _ : state)
        TheDesk().Sign(false);
}
BENCHMARK(SignTenKiBDetached);

void BareRsaVerificationAndHash(benchmark::State& state) {
    const tests::Key& key = TheDesk().pki.signer.PrivateKey();
    const EvpKeyContextPtr context(EVP_PKEY_CTX_new(key.get(), nullptr));
    const std::string content(kContent, 'n');
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    std::array<unsigned char, 256> signature{};
    std::size_t size = signature.size();
    SHA256(reinterpret_cast<const unsigned char*>(content.data()), content.size(), digest.data());
    if (EVP_PKEY_sign_init(context.get()) != 1 || EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) != 1 ||
        EVP_PKEY_sign(context.get(), signature.data(), &size, digest.data(), digest.size()) != 1)
        Fail("no bare signature");
    if (EVP_PKEY_verify_init(context.get()) != 1 || EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) != 1)
        Fail("no bare verification");
    for (auto _ : state) {
        SHA256(reinterpret_cast<const unsigned char*>(content.data()), content.size(), digest.data());
        if (EVP_PKEY_verify(context.get(), signature.data(), size, digest.data(), digest.size()) != 1)
            Fail("not verified");
    }
}
BENCHMARK(BareRsaVerificationAndHash);

void JudgeSigner(const toolkit::ClsCrypt2& crypt) {
    const auto findings = crypt.LastFindings();
    if (!findings || findings->signers.size() != 1) Fail("no signer");
    const auto chain = platform::CertGetCertificateChain(findings->signers[0].certificate, {});
    if (!chain || platform::CertVerifyCertificateChainPolicy(*chain) != 0) Fail("chain not good");
}

void VerifyTenKiBWithChain(benchmark::State& state) {
    for (auto _ : state) {
        toolkit::ClsCrypt2 crypt;
        if (!crypt.VerifyFile(TheDesk().Attached())) Fail("not verified: " + crypt.LastErrorText());
        JudgeSigner(crypt);
    }
}
BENCHMARK(VerifyTenKiBWithChain);

void VerifyTenKiBDetachedWithChain(benchmark::State& state) {
    for (auto _ : state) {
        toolkit::ClsCrypt2 crypt;
        if (!crypt.VerifyDetachedFile(TheDesk().file, TheDesk().Detached()))
            Fail("not verified: " + crypt.LastErrorText());
        JudgeSigner(crypt);
    }
}
BENCHMARK(VerifyTenKiBDetachedWithChain);

void VerifyTenKiBWithoutChain(benchmark::State& state) {
    for (auto _ : state) {
        toolkit::ClsCrypt2 crypt;
        if (!crypt.VerifyFile(TheDesk().Attached())) Fail("not verified: " + crypt.LastErrorText());
    }
}
BENCHMARK(VerifyTenKiBWithoutChain);

}  // namespace

int main(int count, char** values) {
    benchmark::Initialize(&count, values);
    if (benchmark::ReportUnrecognizedArguments(count, values)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
