#pragma once
// A user with a certificate chain in the stores who signs files through the toolkit's outer objects.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Pki.h"
#include "toolkit/CkCertW.h"
#include "toolkit/CkCrypt2W.h"
#include "toolkit/CkHttpW.h"

namespace tests {

std::u16string Wide(const std::string& utf8);
std::string Narrow(const char16_t* text);

// What SigningAttributes holds for an ordinary signature, and with a timestamp from the authority at the URL.
std::string UsualAttributes(const std::string& tsaUrl = {}, const std::string& hash = "sha256");

struct SignOptions {
    bool attached = true;
    bool cades = true;
    bool chain = true;
    bool derOrder = false;
    std::string hash = "sha256";
    std::string attributes = UsualAttributes();
    toolkit::CkHttpW* http = nullptr;
};

class SignFixture : public testing::Test {
  protected:
    explicit SignFixture(KeyType type = KeyType::rsa2048);

    // Signs with the certificate of that thumbprint; what was noted goes to log_.
    bool TrySign(const std::filesystem::path& input, const std::filesystem::path& output, const SignOptions& options,
                 const std::string& thumbprint);
    bool TrySign(const std::filesystem::path& input, const std::filesystem::path& output,
                 const SignOptions& options = {}) {
        return TrySign(input, output, options, pki_.signer.Thumbprint());
    }
    // The same for a file with this content; fails the test if there is no signature. Answers its path.
    std::filesystem::path Sign(const std::string& content, const SignOptions& options = {});
    [[nodiscard]] std::filesystem::path Scratch(const std::string& name) const { return profile_.Folder() / name; }
    // What "ours" (timestamps included), "openssl" (which writes the content to content.out), "certtool" or "gpgsm" has
    // against a message; empty if it is good. `data` holds the content of a detached one.
    [[nodiscard]] std::string Verdict(const std::string& judge, const std::filesystem::path& message,
                                      const std::filesystem::path& data = {}) const;

    Profile profile_;
    StandardPki pki_;
    std::string log_;
};

// The structure of DER on one line: S( for SEQUENCE, T( for SET, [n]( for context tags, identifiers dotted, integers by
// their value, others by tag and size. Certificates are cut to "cert".
std::string Shape(ByteView der);

struct AttributeSet {
    std::vector<Bytes> encoded;  // each Attribute in DER
    [[nodiscard]] std::vector<std::string> Types() const;
    // The value of the first attribute of that type, in DER; empty if there is none.
    [[nodiscard]] Bytes Value(const std::string& oid) const;
};

// The fields of the first SignerInfo of a message.
struct SignerParts {
    AttributeSet isSigned, isUnsigned;
    std::vector<Bytes> certificates;
    std::string signatureOid;
    Bytes signature;
};
SignerParts ReadSigner(const std::filesystem::path& message);

}  // namespace tests
