// norvik-bench-many [FILES [SIGNERS]]: the verdicts on many small files in one process, signed by so many signers (as
// many as files, if not told) with certificates of the same authority, beside the public-key operations and hashes that
// nobody can do without: the check of the signature's value and of the certificate's. Prints one line of JSON: CPU time
// of both, wall time, and the memory after a hundred calls and after all of them.

#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "norvik/norvik.h"
#include "tests/support/Pki.h"

namespace {

namespace fs = std::filesystem;
using Context = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;

constexpr std::size_t kContent = 1 << 10;
// What openssl's `cms -sign` signs: content type, time, digest, and the capabilities.
constexpr std::size_t kSignedAttributes = 220;
constexpr int kBatch = 250;

[[noreturn]] void Fail(const std::string& reason) {
    std::cerr << reason << "\n";
    std::exit(2);
}

double CpuMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

long ResidentKiB() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// No two files are alike, so that nothing found out about one says anything about another.
void Sign(const tests::Certificate& signer, const tests::Certificate& ca, const fs::path& file) {
    const std::unique_ptr<BIO, decltype(&BIO_free)> content(BIO_new(BIO_s_mem()), BIO_free);
    std::string text = file.string();
    text.resize(kContent, 'n');
    BIO_write(content.get(), text.data(), kContent);
    const std::unique_ptr<STACK_OF(X509), void (*)(STACK_OF(X509)*)> others(
        sk_X509_new_null(), [](STACK_OF(X509) * stack) { sk_X509_free(stack); });
    sk_X509_push(others.get(), ca.Native());
    const std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)> message(
        CMS_sign(signer.Native(), signer.PrivateKey().get(), others.get(), content.get(), CMS_BINARY),
        CMS_ContentInfo_free);
    const std::unique_ptr<BIO, decltype(&BIO_free)> out(BIO_new_file(file.c_str(), "wb"), BIO_free);
    if (!message || !out || i2d_CMS_bio(out.get(), message.get()) != 1) Fail("cannot sign");
}

// The operations of one file, made ready beforehand: the bare times hold nothing else.
class Bare {
  public:
    Bare(const tests::Key& signer, const tests::Key& ca, std::size_t certificate)
        : signer_(signer, kSignedAttributes), ca_(ca, certificate) {}
    void Run() {
        SHA256(content_.data(), content_.size(), digest_.data());
        signer_.Run();
        ca_.Run();
    }

  private:
    class Check {
      public:
        Check(const tests::Key& key, std::size_t size)
            : context_(EVP_PKEY_CTX_new(key.get(), nullptr), EVP_PKEY_CTX_free), signed_(size, 1) {
            std::size_t length = signature_.size();
            SHA256(signed_.data(), signed_.size(), digest_.data());
            if (EVP_PKEY_sign_init(context_.get()) != 1 ||
                EVP_PKEY_CTX_set_signature_md(context_.get(), EVP_sha256()) != 1 ||
                EVP_PKEY_sign(context_.get(), signature_.data(), &length, digest_.data(), digest_.size()) != 1 ||
                EVP_PKEY_verify_init(context_.get()) != 1 ||
                EVP_PKEY_CTX_set_signature_md(context_.get(), EVP_sha256()) != 1)
                Fail("no bare signature");
        }
        void Run() {
            SHA256(signed_.data(), signed_.size(), digest_.data());
            if (EVP_PKEY_verify(context_.get(), signature_.data(), signature_.size(), digest_.data(), digest_.size()) !=
                1)
                Fail("not verified");
        }

      private:
        Context context_;
        std::vector<unsigned char> signed_, digest_ = std::vector<unsigned char>(SHA256_DIGEST_LENGTH),
                                            signature_ = std::vector<unsigned char>(256);
    };
    Check signer_, ca_;
    std::vector<unsigned char> content_ = std::vector<unsigned char>(kContent, 'n'),
                               digest_ = std::vector<unsigned char>(SHA256_DIGEST_LENGTH);
};

void CountGood(std::uint64_t context, const char16_t* json) {
    const std::u16string_view text(json);
    const bool good =
        text.find(u"\"SignStatus\": \"ok\"") != text.npos && text.find(u"\"CertStatus\": \"ok\"") != text.npos;
    if (!good) Fail("not good: " + std::string(text.begin(), text.end()));
    ++*reinterpret_cast<int*>(context);
}

struct Figures {
    double ours = 0, oursWall = 0, bare = 0;
    long early = 0, late = 0;
};

Figures Measure(const std::vector<std::u16string>& requests, Bare& bare) {
    Figures figures;
    int good = 0;
    for (std::size_t start = 0; start < requests.size(); start += kBatch) {
        const auto end = std::min(start + kBatch, requests.size());
        const auto wall = std::chrono::steady_clock::now();
        double before = CpuMicroseconds();
        for (std::size_t i = start; i < end; ++i) {
            NorvikSignInfoJson(requests[i].c_str(), CountGood, reinterpret_cast<std::uint64_t>(&good));
            if (i == 99) figures.early = ResidentKiB();
        }
        figures.ours += CpuMicroseconds() - before;
        figures.oursWall += std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - wall).count();
        before = CpuMicroseconds();
        for (std::size_t i = start; i < end; ++i)
            bare.Run();
        figures.bare += CpuMicroseconds() - before;
    }
    if (good != static_cast<int>(requests.size())) Fail("calls without an answer");
    figures.late = ResidentKiB();
    return figures;
}

}  // namespace

int main(int count, char** values) {
    const int files = count > 1 ? std::atoi(values[1]) : 10'000;
    const int signerCount = count > 2 ? std::atoi(values[2]) : files;
    if (files <= 100 || signerCount < 1) return 2;
    constexpr const char* kMemory = "/dev/shm";
    if (fs::is_directory(kMemory)) setenv("TMPDIR", kMemory, 1);
    const tests::Profile profile;
    const tests::StandardPki pki;
    pki.Install(profile);
    pki.InstallCrls(profile);
    fs::create_directory(profile.Folder() / "signed");
    std::vector<tests::Certificate> signers;
    std::vector<std::u16string> requests;
    for (int i = 0; i < files; ++i) {
        if (static_cast<int>(signers.size()) < signerCount)
            signers.push_back(tests::Issue(
                {.subject = {{"CN", "Подписал " + std::to_string(i)}}, .key = pki.signer.PrivateKey()}, pki.ca));
        const auto& signer = signers[static_cast<std::size_t>(i % signerCount)];
        const auto file = profile.Folder() / "signed" / (std::to_string(i) + ".p7m");
        Sign(signer, pki.ca, file);
        const auto request = "{\"SignFile\":\"" + file.string() + "\"}";
        requests.emplace_back(request.begin(), request.end());
    }
    Bare bare(pki.signer.PrivateKey(), pki.ca.PrivateKey(), pki.signer.Der().size());
    const auto figures = Measure(requests, bare);
    std::printf(
        "{\"files\": %d, \"signers\": %d, \"norvik_us\": %.1f, \"norvik_wall_us\": %.1f, \"bare_us\": %.1f, "
        "\"early_kib\": %ld, \"late_kib\": %ld}\n",
        files, signerCount, figures.ours / files, figures.oursWall / files, figures.bare / files, figures.early,
        figures.late);
    return 0;
}
