// What somebody changes on the way, on purpose or by accident.

#include <unistd.h>

#include <fstream>

#include "crypt/CryptMessage.h"
#include "src/verification/SignedFile.h"
#include "tests/src/VerificationTest.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::HasSubstr;
using verification::SignatureEntries;

class VerifyTampered : public VerificationTest {
  protected:
    VerifyTampered() { InstallStandard(); }
    // By somebody whom the stores trust directly, with nothing in the message that is not needed.
    [[nodiscard]] fs::path SmallestAttached(const std::string& name) const {
        const auto signer = Issue({.subject = {{"CN", "X"}},
                                   .key = TestKey(KeyType::p256, 9),
                                   .ca = {},
                                   .keyUsage = "",
                                   .subjectKeyId = false,
                                   .authorityKeyId = false});
        InstallCertificate(profile_, "ROOT", signer);
        Document("data", "x");
        return OpenSslSign(name, "data", {{signer}, {}, {"-nodetach", "-nosmimecap"}});
    }
    // All signatures and certificates are good.
    static bool AllGood(const fs::path& file) {
        SignatureEntries entries;
        try {
            verification::VerifySignatureFile(file, {}, entries);
        } catch (const std::runtime_error&) {
            return false;
        }
        return !entries.empty() && std::ranges::all_of(entries, [](const auto& entry) {
            return entry.signStatus == 0 && entry.certStatus == 0;
        });
    }
    // What of the message counts: content, certificate, signed attributes, signature; hexadecimal.
    static std::string WhatCounts(const fs::path& file) {
        tessaly::CryptMessageDecode decoder;
        verification::OpenSigned(decoder, verification::OpenSource(file));
        const auto certificate = decoder.GetSignerCertificate(0);
        const auto signer = decoder.GetParam(platform::CMSG_CMS_SIGNER_INFO_PARAM);
        if (!certificate || !signer) return "nothing";
        std::string all = Hex(decoder.GetContent()) + "|" + Hex(certificate->Context().Encoded()) + "|";
        for (const auto& attribute : signer->AuthAttrs) {
            all += attribute.pszObjId;
            for (const auto& value : attribute.rgValue)
                all += "=" + Hex(value);
        }
        return all + "|" + Hex(signer->EncryptedHash);
    }
};

// A flipped bit may hit what nobody signs (a version, a length's form, the announced digests). Then the file may still
// be good, but what was signed is the same.
TEST_F(VerifyTampered, NoFlippedBitMakesOtherBytesGoodAndNoCutFileIsGood) {
    const auto file = SmallestAttached("flip.p7m");
    ASSERT_TRUE(AllGood(file));
    const auto original = ReadFile(file);
    const auto counts = WhatCounts(file);
    int stillGood = 0;
    for (std::size_t bit = 0; bit < original.size() * 8; ++bit) {
        auto changed = original;
        changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << (bit % 8)));
        Overwrite(file, changed);
        if (!AllGood(file)) continue;
        ++stillGood;
        EXPECT_EQ(WhatCounts(file), counts) << "byte " << bit / 8 << " bit " << bit % 8;
    }
    // Most of the file is signed, or is needed to read it.
    EXPECT_LT(stillGood, static_cast<int>(original.size() * 8 * 6 / 10)) << original.size();
    for (std::size_t length = 0; length < original.size(); ++length) {
        Overwrite(file, original.substr(0, length));
        EXPECT_THAT(Refusal(file), HasSubstr("Error 0x")) << length;
    }
}

TEST_F(VerifyTampered, ASignatureMovedToOtherContentOrWithAnotherValueIsBad) {
    const auto one = ReadFile(Attached("one.p7m", "words")), two = ReadFile(Attached("two.p7m", "other"));
    auto moved = one;
    moved.replace(moved.find("words"), 5, "other");
    const auto content = std::move(Verify(Document("moved.p7m", moved)).at(0));
    EXPECT_EQ(content.signStatus, platform::CRYPT_E_HASH_VALUE);
    EXPECT_EQ(content.signMessage, tessaly::StatusText(content.signStatus));
    EXPECT_EQ(content.certStatus, 0U) << "the certificate is judged all the same";
    EXPECT_TRUE(AllGood(Document("two.p7m", two)));
    moved = two;
    moved.back() ^= 1;  // of the signature's value
    EXPECT_EQ(Verify(Document("moved.p7m", moved)).at(0).signStatus, platform::TRUST_E_BAD_DIGEST);
}

// Whoever can add a certificate must not choose whose chain is judged.
TEST_F(VerifyTampered, AnImpostorWithTheSameIssuerAndSerialNumberChangesNothing) {
    const auto impostor =
        Issue({.subject = {{"CN", "Иван Петров"}},
               .issuerName = Name{{"C", "BG", V_ASN1_PRINTABLESTRING}, {"O", "Norvik Test"}, {"CN", "Norvik Test CA"}},
               .serial = pki_.signer.Serial(),
               .key = TestKey(KeyType::p256, 7)});
    Document("data", "words");
    const auto file = OpenSslSign("both.p7m", "data", {{pki_.signer}, {impostor, pki_.ca}, {"-nodetach"}});
    const auto entries = Verify(file);
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].signStatus, 0U);
    EXPECT_EQ(entries[0].certStatus, 0U);
    EXPECT_EQ(platform::ToUtf8(entries[0].certificate->GetThumbprint()), pki_.signer.Thumbprint());
}

// The file grows, shrinks or is written anew after it was opened.
TEST_F(VerifyTampered, AFileThatChangesUnderneathIsNotCalledGood) {
    const std::string content(3 << 20, 'x');
    const auto file = Attached("big.p7m", content);
    const auto verifyAfter = [&](const std::function<void()>& change) {
        SignatureEntries entries;
        const auto source = verification::OpenSource(file);
        change();
        try {
            verification::VerifyMessage({.message = source, .openData = [] { return nullptr; }}, entries);
        } catch (const std::runtime_error&) {
            return false;
        }
        return entries.at(0).signStatus == 0;
    };
    EXPECT_TRUE(verifyAfter([] {}));
    EXPECT_FALSE(verifyAfter([&] { std::fstream(file).seekp(1'000'000).put('y'); }));
    Attached("big.p7m", content);
    EXPECT_FALSE(verifyAfter([&] { fs::resize_file(file, 1'000'000); }));
    Attached("big.p7m", content);
    EXPECT_TRUE(verifyAfter([&] { fs::remove(file); })) << "what was opened is still whole";
}

}  // namespace
