#pragma once
// Somebody who signs with openssl and verifies with us.

#include <iterator>
#include <sstream>

#include "platform/Text.h"
#include "src/verification/VerifySignature.h"
#include "tests/src/Person.h"
#include "tests/support/Process.h"

namespace tests {

class VerificationTest : public PersonTest {
  protected:
    // Root, CA and their CRLs, so that the standard signer is good.
    void InstallStandard() const {
        pki_.Install(profile_);
        pki_.InstallCrls(profile_);
    }

    std::filesystem::path Document(const std::string& name, std::string_view content) const {
        return profile_.Write(documents_ / name, content);
    }
    static void OpenSsl(std::vector<std::string> command) {
        command.insert(command.begin(), "openssl");
        const auto done = RunProgram(command);
        if (done.status != 0) throw std::runtime_error(done.Summary());
    }
    struct Signing {
        std::vector<Certificate> signers, others = {};
        std::string options = "-nodetach";  // of openssl cms, between blanks
    };
    // A signature under documents/NAME over documents/data, which gets this content.
    std::filesystem::path OpenSslSign(const std::string& name, const Signing& signing,
                                      const std::string& content = "words") const {
        const auto file = documents_ / name;
        std::vector<std::string> command{
            "cms", "-sign", "-binary", "-outform", "DER", "-in", Document("data", content), "-out", file};
        std::string others;
        for (const auto& other : signing.others)
            others += other.Pem();
        if (!others.empty()) command.insert(command.end(), {"-certfile", profile_.Write("others.pem", others)});
        for (const auto& signer : signing.signers) {
            const auto base = signer.Thumbprint();
            command.insert(command.end(), {"-signer", profile_.Write(base + ".pem", signer.Pem())});
            command.insert(command.end(), {"-inkey", profile_.Write(base + ".key", signer.KeyPem())});
        }
        std::istringstream options(signing.options);
        command.insert(command.end(), std::istream_iterator<std::string>(options), {});
        OpenSsl(command);
        return file;
    }
    // By the standard signer, with the CA inside.
    std::filesystem::path Attached(const std::string& name = "a.txt.p7m", const std::string& content = "words") const {
        return OpenSslSign(name, {{pki_.signer}, {pki_.ca}}, content);
    }
    std::filesystem::path Detached(const std::string& name = "a.txt.p7s") const {
        return OpenSslSign(name, {{pki_.signer}, {pki_.ca}, ""});
    }

    static verification::SignatureEntries Verify(const std::filesystem::path& file,
                                                 const std::optional<std::filesystem::path>& data = {}) {
        verification::SignatureEntries entries;
        verification::VerifySignatureFile(file, data, entries);
        return entries;
    }
    // The entry of a file with one signer.
    static verification::SignatureEntry EntryOf(const std::filesystem::path& file,
                                                const std::optional<std::filesystem::path>& data = {}) {
        auto entries = Verify(file, data);
        if (entries.size() != 1) throw std::runtime_error("not one entry");
        return std::move(entries[0]);
    }
    static void Change(const std::filesystem::path& file, std::size_t at) {
        auto bytes = ReadFile(file);
        bytes.at(at) ^= 1;
        Overwrite(file, bytes);
    }
    static void Overwrite(const std::filesystem::path& file, std::string_view bytes) {
        ASSERT_TRUE(platform::WriteWholeFile(file, platform::AsBytes(bytes)));
    }

    const StandardPki pki_{KeyType::p256};
    const std::filesystem::path documents_ = profile_.Write("documents/data", "words").parent_path();
};

}  // namespace tests
