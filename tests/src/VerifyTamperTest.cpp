// The whole verdict, of both engines and of the chain, on files in which one bit was turned.

#include "crypt/CryptMessage.h"
#include "src/verification/SignedFile.h"
#include "tests/src/VerificationTest.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;

class VerifyTampered : public VerificationTest {
  protected:
    static bool IsGood(const fs::path& file) try {
        const auto entries = Verify(file);
        return !entries.empty() && std::ranges::all_of(entries, [](const auto& entry) {
            return entry.signStatus == 0 && entry.certStatus == 0;
        });
    } catch (const std::runtime_error&) {
        return false;
    }
    // What of the message counts: content, certificate, signed attributes, signature.
    static std::vector<platform::Bytes> WhatCounts(const fs::path& file) {
        tessaly::CryptMessageDecode decoder;
        verification::OpenSigned(decoder, verification::OpenSource(file));
        const auto certificate = decoder.GetSignerCertificate(0);
        const auto signer = decoder.GetParam(platform::CMSG_CMS_SIGNER_INFO_PARAM);
        if (!certificate || !signer) return {};
        std::vector<platform::Bytes> all{decoder.GetContent(), platform::CopyOf(certificate->Context().Encoded()),
                                         signer->EncryptedHash};
        for (const auto& attribute : signer->AuthAttrs) {
            all.push_back(platform::CopyOf(platform::AsBytes(attribute.pszObjId)));
            all.insert(all.end(), attribute.rgValue.begin(), attribute.rgValue.end());
        }
        return all;
    }
};

// A bit may hit what nobody signs (a version, a length's form, the announced digests). Then the file may still be good,
// but what was signed is the same.
TEST_F(VerifyTampered, NoFlippedBitMakesOtherBytesGood) {
    // By somebody whom the stores trust directly, with nothing in the message that is not needed.
    const auto signer = Issue({.subject = {{"CN", "X"}},
                               .key = TestKey(KeyType::p256, 9),
                               .ca = {},
                               .keyUsage = "",
                               .subjectKeyId = false,
                               .authorityKeyId = false});
    InstallCertificate(profile_, "ROOT", signer);
    const auto file = OpenSslSign("flip.p7m", {{signer}, {}, "-nodetach -nosmimecap"}, "x");
    ASSERT_TRUE(IsGood(file));
    const auto original = ReadFile(file);
    const auto counts = WhatCounts(file);
    std::size_t stillGood = 0;
    for (std::size_t bit = 0; bit < original.size() * 8; ++bit) {
        auto changed = original;
        changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << (bit % 8)));
        Overwrite(file, changed);
        if (!IsGood(file)) continue;
        ++stillGood;
        EXPECT_EQ(WhatCounts(file), counts) << "byte " << bit / 8 << " bit " << bit % 8;
    }
    EXPECT_LT(stillGood, original.size() * 8 * 6 / 10) << "most of the file is signed, or is needed to read it";
}

}  // namespace
