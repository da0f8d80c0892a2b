// Certificates found by their hash, and what is said of their revocation.

#include "platform/Hash.h"
#include "platform/HostLog.h"
#include "tests/support/SoftToken.h"
#include "tests/toolkit/SignFixture.h"
#include "toolkit/Base64.h"
#include "toolkit/CkTrustedRootsW.h"

namespace {

using namespace tests;
using testing::HasSubstr;

class CertTest : public testing::Test {
  protected:
    CertTest() { UseNoPkcs11Modules(profile_); }
    bool Load(const std::string& thumbprint, const char16_t* encoding = u"hex") {
        certificate_.put_VerboseLogging(true);
        const bool found = certificate_.LoadByThumbprint(Wide(thumbprint).c_str(), encoding);
        log_ = Narrow(certificate_.lastErrorText());
        return found;
    }
    Profile profile_;
    const Certificate one_ = Issue({.subject = {{"CN", "One"}}, .key = TestKey(KeyType::p256)});
    toolkit::CkCertW certificate_;
    std::string log_;
};

TEST_F(CertTest, HashIsReadInItsForms) {
    InstallCertificate(profile_, "TrustedPeople", one_);
    using platform::Digest, platform::HashAlgorithm, toolkit::EncodeBase64;
    const Bytes sha1 = Digest(HashAlgorithm::sha1, one_.Der()), md5 = Digest(HashAlgorithm::md5, one_.Der());
    std::string spaced = "\t", lower;
    for (const char c : one_.Thumbprint()) {
        lower.push_back(static_cast<char>(std::tolower(c)));
        spaced.append(spaced.size() % 3 == 2 ? ": " : "").push_back(c);
    }
    const std::pair<std::string, const char16_t*> forms[] = {{lower, u"hex"},
                                                             {spaced, u"HEX"},
                                                             {Hex(md5), u"hex"},
                                                             {EncodeBase64(sha1), u"Base64"},
                                                             {EncodeBase64(md5), u"base64"}};
    for (const auto& [text, encoding] : forms)
        EXPECT_TRUE(Load(text, encoding)) << text << log_;
    EXPECT_FALSE(Load(std::string(40, '0')));
}

TEST_F(CertTest, HashOfAWrongSizeFailsBeforeAnyStoreIsOpened) {
    // Something in a store that cannot be read leaves a remark whenever the store is opened.
    static int remarks = 0;
    remarks = 0;
    profile_.Write(profile_.Stores() / "MY" / "broken.cer", "no certificate");
    platform::SetHostLog([](std::string_view) { ++remarks; });
    for (const std::string& wrong : {std::string(38, 'A'), std::string(), std::string("xyz"), std::string(41, 'A')}) {
        EXPECT_FALSE(Load(wrong)) << wrong;
        EXPECT_THAT(log_, HasSubstr("Hash must be 16 bytes (md5) or 20 bytes (sha1)"));
    }
    EXPECT_FALSE(Load(std::string(40, 'A'), u"no such encoding"));
    EXPECT_EQ(remarks, 0);
    EXPECT_FALSE(Load(std::string(40, 'A')));
    EXPECT_GT(remarks, 0);
    platform::SetHostLog(nullptr);
}

TEST_F(CertTest, FirstStoreInTheOrderWinsAndTheUserComesBeforeTheMachine) {
    // From the last one asked to the first: each new place must win over those before.
    for (const std::string store : {"TrustedPublisher", "TrustedPeople", "AuthRoot", "CertificationAuthority", "ROOT",
                                    "CA", "ADDRESSBOOK", "MY"}) {
        profile_.Write(profile_.Machine() / "stores" / store / "c.pem", one_.Pem());
        for (const char* location : {"LocalMachine", "CurrentUser"}) {
            ASSERT_TRUE(Load(one_.Thumbprint())) << store << log_;
            EXPECT_THAT(log_, HasSubstr("foundInStore: " + store));
            EXPECT_THAT(log_, HasSubstr(std::string("storeLocation: ") + location));
            InstallCertificate(profile_, store, one_);
        }
    }
}

TEST_F(CertTest, RevocationIsZeroOneOrUnknown) {
    EXPECT_EQ(certificate_.CheckRevoked(), -1);
    const StandardPki pki;
    pki.Install(profile_);
    const auto revoked = [&] { return Load(pki.signer.Thumbprint()) ? certificate_.CheckRevoked() : -2; };
    EXPECT_EQ(revoked(), -1) << "nobody could tell";
    InstallCrl(profile_, "CA", MakeCrl(pki.ca));
    EXPECT_EQ(revoked(), 0) << Narrow(certificate_.lastErrorText());
    InstallCrl(profile_, "CA",
               MakeCrl(pki.ca, {.revoked = {{pki.signer.Serial(), std::time(nullptr) - kDay, 1}},
                                .thisUpdate = std::time(nullptr) - 60}));
    EXPECT_EQ(revoked(), 1);
}

TEST_F(CertTest, ActivatingTheEmptyListOfRootsSucceeds) {
    toolkit::CkTrustedRootsW roots;
    roots.put_TrustSystemCaRoots(true);
    EXPECT_TRUE(roots.Activate());
    EXPECT_THAT(Narrow(roots.lastErrorText()), HasSubstr("numTrustedRoots: 0"));
}

}  // namespace
