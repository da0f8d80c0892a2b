#pragma once
// Somebody who signs with openssl and verifies with us; the person behind the interface is a script.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/verification/VerifySignature.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedInterface.h"
#include "tests/support/SoftToken.h"

namespace tests {

class VerificationTest : public testing::Test {
  protected:
    VerificationTest() {
        UseNoPkcs11Modules(profile_);
        CNorvikApp::Start(std::make_unique<ScriptedInterface>(script_));
        std::filesystem::create_directories(Documents());
    }
    ~VerificationTest() override { CNorvikApp::Stop(); }

    // Root, CA and their CRLs, so that the standard signer is good.
    void InstallStandard(const std::vector<RevokedEntry>& revoked = {}) const {
        pki_.Install(profile_);
        pki_.InstallCrls(profile_, revoked);
    }

    [[nodiscard]] std::filesystem::path Documents() const { return profile_.Folder() / "documents"; }
    std::filesystem::path Document(const std::string& name, std::string_view content) const {
        return profile_.Write(std::filesystem::path("documents") / name, content);
    }

    struct Signing {
        std::vector<Certificate> signers, others;
        std::vector<std::string> options;  // of openssl cms; "-nodetach" for an attached signature
    };
    // A signature over documents/data under documents/NAME.
    std::filesystem::path OpenSslSign(const std::string& name, const std::string& data, const Signing& signing) const {
        std::vector<std::string> command{"openssl", "cms", "-sign", "-binary", "-outform", "DER"};
        command.insert(command.end(), {"-in", Documents() / data, "-out", Documents() / name});
        std::string others;
        for (const auto& other : signing.others)
            others += other.Pem();
        if (!others.empty()) command.insert(command.end(), {"-certfile", profile_.Write("others.pem", others)});
        for (std::size_t i = 0; i < signing.signers.size(); ++i) {
            const auto base = "signer" + std::to_string(i);
            command.insert(command.end(), {"-signer", profile_.Write(base + ".pem", signing.signers[i].Pem())});
            command.insert(command.end(), {"-inkey", profile_.Write(base + ".key", signing.signers[i].KeyPem())});
        }
        command.insert(command.end(), signing.options.begin(), signing.options.end());
        const auto done = RunProgram(command);
        if (done.status != 0) throw std::runtime_error(done.errors);
        return Documents() / name;
    }
    // By the standard signer, with the CA inside.
    std::filesystem::path Attached(const std::string& name = "a.txt.p7m", const std::string& content = "words") const {
        Document("data", content);
        return OpenSslSign(name, "data", {{pki_.signer}, {pki_.ca}, {"-nodetach"}});
    }
    std::filesystem::path Detached(const std::string& name = "a.txt.p7s", const std::string& content = "words") const {
        Document("data", content);
        return OpenSslSign(name, "data", {{pki_.signer}, {pki_.ca}, {}});
    }
    // The one entry of a signature by this certificate, with these inside.
    verification::SignatureEntry EntryOf(const Certificate& signer, const std::vector<Certificate>& others = {}) const {
        Document("data", "words");
        auto entries = Verify(OpenSslSign("signed.p7m", "data", {{signer}, others, {"-nodetach"}}));
        if (entries.size() != 1) throw std::runtime_error("no entry");
        return std::move(entries[0]);
    }

    static verification::SignatureEntries Verify(const std::filesystem::path& file,
                                                 const std::optional<std::filesystem::path>& data = {}) {
        verification::SignatureEntries entries;
        verification::VerifySignatureFile(file, data, entries);
        return entries;
    }
    // What is thrown; "(verified)" if nothing is.
    static std::string Refusal(const std::filesystem::path& file,
                               const std::optional<std::filesystem::path>& data = {}) {
        try {
            Verify(file, data);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "(verified)";
    }
    static void Change(const std::filesystem::path& file, const std::string& what) {
        auto bytes = ReadFile(file);
        bytes.at(bytes.find(what)) ^= 1;
        Overwrite(file, bytes);
    }
    static void Overwrite(const std::filesystem::path& file, std::string_view bytes) {
        ASSERT_TRUE(platform::WriteWholeFile(file, platform::AsBytes(bytes)));
    }
    [[nodiscard]] std::string Log() const {
        const auto log = profile_.Folder() / "tmp/Norvik/Norvik.log";
        return std::filesystem::exists(log) ? ReadFile(log) : "";
    }

    Profile profile_;
    StandardPki pki_{KeyType::p256};
    Script script_;
};

}  // namespace tests
