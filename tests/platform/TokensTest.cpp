#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/Text.h"
#include "platform/posix/Native.h"
#include "tests/platform/Child.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/Corpora.h"
#include "tests/support/FakeToken.h"
#include "tests/support/KeyUse.h"
#include "tests/support/LastError.h"
#include "tests/support/SoftToken.h"

namespace {

using namespace platform;
using namespace tests;

Certificate Signer(KeyType type, unsigned index = 0) {
    return Issue({.subject = {{"CN", "Иван Петров"}}, .key = TestKey(type, index)});
}
CertificateContext FindOnTokens(const Certificate& certificate) {
    for (const auto& found : posix::CertificatesOnTokens())
        if (found == ContextOf(certificate)) return found;
    return {};
}
PrivateKey KeyOf(const Certificate& certificate) {
    const auto acquired = AcquireKey(FindOnTokens(certificate));
    if (!acquired) ADD_FAILURE() << std::hex << GetLastError();
    return acquired ? acquired->key : PrivateKey();
}

// --- A real token in software ---

class Tokens : public testing::Test {
  protected:
    void SetUp() override {
        if (!SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
        token_.emplace(profile_);
    }
    Profile profile_;
    std::optional<SoftToken> token_;
    const Certificate signer_ = Signer(KeyType::p256);
};

TEST_F(Tokens, SignWithEachKindOfKeyWhatOthersVerify) {
    const std::pair<KeyType, std::vector<HashAlgorithm>> cases[] = {
        {KeyType::rsa2048, {HashAlgorithm::sha256, HashAlgorithm::sha1}},
        {KeyType::p256, {HashAlgorithm::sha256, HashAlgorithm::sha512}},
        {KeyType::p384, {HashAlgorithm::sha384}},
        {KeyType::dsa2048, {HashAlgorithm::sha256}}};
    for (const auto& [type, hashes] : cases) {
        const Certificate signer = Signer(type);
        token_->Put(signer, "0" + std::to_string(static_cast<int>(type)));
        for (const HashAlgorithm hash : hashes) {
            ScriptedPins user({token_->Pin()});
            const PrivateKey key = KeyOf(signer);
            EXPECT_FALSE(key.IsExportable());
            EXPECT_TRUE(user.asked.empty());
            const Bytes signature = SignContent(key, hash);
            EXPECT_LE(signature.size(), key.SignatureSize());
            EXPECT_TRUE(IsContentSignature(signer, signature, hash)) << std::hex << GetLastError();
            ASSERT_EQ(user.asked.size(), 1U);
            EXPECT_EQ(user.asked[0].kind, PinRequest::Kind::token);
            EXPECT_EQ(user.asked[0].subject, u"Карта");
        }
    }
}

TEST_F(Tokens, ShowTheCertificatesWhoseKeyTheyHold) {
    const Certificate signer = Signer(KeyType::rsa2048);
    token_->Put(signer, "01");
    token_->Put(Signer(KeyType::rsa2048, 1), "02", false);
    // Somebody else's certificate under the id of our key: the id alone is no proof.
    token_->Put(Signer(KeyType::rsa2048, 2), "01", false);
    for (const auto& listed :
         {posix::CertificatesOnTokens(), CertEnumCertificatesInStore(CertOpenSystemStoreW(u"MY"))}) {
        ASSERT_EQ(listed, std::vector{ContextOf(signer)});
        EXPECT_TRUE(CertHasPrivateKey(listed[0]));
    }
    for (const std::u16string_view provider : {u"Карта", u"softhsm2", u"libsofthsm2.so"}) {
        const auto keys = NCryptEnumKeys(provider);
        EXPECT_EQ(GetLastError(), NTE_NO_MORE_ITEMS);
        ASSERT_EQ(keys.size(), 1U);
        EXPECT_EQ(keys[0].pszName, u"key01");
        EXPECT_EQ(keys[0].pszAlgid, u"RSA");
        EXPECT_EQ(keys[0].certificate, ContextOf(signer));
    }
    EXPECT_FAILS(NCryptEnumKeys(u"Друга карта"), NTE_KEYSET_NOT_DEF);
}

TEST_F(Tokens, RefuseAWrongPinOnceAndGiveAnErrorWhenTheyVanish) {
    token_->Put(signer_, "01");
    const auto key = KeyOf(signer_);
    ScriptedPins user({"111111", token_->Pin(), token_->Pin()});
    EXPECT_FAILS(SignContent(key), SCARD_W_WRONG_CHV);
    EXPECT_EQ(TokenErrorDetail(), u"CKR_PIN_INCORRECT (0xa0)");
    EXPECT_EQ(user.asked.size(), 1U);
    EXPECT_FALSE(SignContent(key).empty());
    EXPECT_TRUE(TokenErrorDetail().empty());
    for (const auto& entry : std::filesystem::directory_iterator(token_->Folder()))
        std::filesystem::remove_all(entry);
    EXPECT_TRUE(SignContent(key).empty());
    EXPECT_NE(GetLastError(), ERROR_SUCCESS);
    EXPECT_NE(GetLastError(), SCARD_W_WRONG_CHV);
    EXPECT_FALSE(TokenErrorMessage(GetLastError()).empty());
}

TEST_F(Tokens, ServeSeveralThreadsAndAChildOfTheProcessAnew) {
    token_->Put(signer_, "01");
    const auto certificate = FindOnTokens(signer_);
    std::atomic<int> good = 0;
    {
        std::vector<std::jthread> threads(4);
        for (std::jthread& thread : threads)
            thread = std::jthread([&] {
                for (int i = 0; i < 10; ++i) {
                    ScriptedPins user({token_->Pin()});
                    const auto acquired = AcquireKey(certificate);
                    good += acquired && IsContentSignature(signer_, SignContent(acquired->key));
                }
            });
    }
    EXPECT_EQ(good, 40);
    const auto key = KeyOf(signer_);
    ScriptedPins user({token_->Pin(), token_->Pin()});
    ASSERT_FALSE(SignContent(key).empty());
    EXPECT_EQ(InChild([&] { return IsContentSignature(signer_, SignContent(key)) ? 0 : 1; }), 0);
    EXPECT_FALSE(SignContent(key).empty());  // the parent's login was not touched
    EXPECT_EQ(user.asked.size(), 1U);
}

// --- A card that does as it is told ---

class Cards : public testing::Test {
  protected:
    [[nodiscard]] PrivateKey Key() const { return KeyOf(signer_); }
    Profile profile_;
    const Certificate signer_ = Signer(KeyType::rsa2048);
    FakeToken card_{profile_, signer_};
};

TEST_F(Cards, AreLeftAsTheyWereFound) {
    {
        const PrivateKey key = Key();
        ScriptedPins user({"1234"});
        EXPECT_TRUE(IsContentSignature(signer_, SignContent(key)));
        EXPECT_FALSE(SignContent(key).empty());
        EXPECT_EQ(user.asked.size(), 1U);  // a handle logs in once
        EXPECT_EQ(card_->userLogins, 1);
    }
    EXPECT_FALSE(card_->loggedIn);
    EXPECT_EQ(card_->logouts, 1);
    card_->loginRequired = false;
    EXPECT_FALSE(SignContent(Key()).empty());
    EXPECT_EQ(card_->userLogins, 1);
    EXPECT_EQ(card_->openSessions, 0);
}

TEST_F(Cards, ThatWantThePinForEachUseAskForEachUseUnlessTheyHaveAPadOfTheirOwn) {
    card_->alwaysAuthenticate = true;
    {
        const PrivateKey key = Key();
        ScriptedPins user({"1234", "1234", "1234", std::nullopt, "1234"});
        EXPECT_TRUE(IsContentSignature(signer_, SignContent(key)));
        EXPECT_FALSE(SignContent(key).empty());
        ASSERT_EQ(user.asked.size(), 3U);
        EXPECT_EQ(user.asked[0].kind, PinRequest::Kind::token);
        EXPECT_EQ(user.asked[1].kind, PinRequest::Kind::signature);
        EXPECT_EQ(user.asked[2].kind, PinRequest::Kind::signature);
        EXPECT_EQ(card_->contextLogins, 2);

        EXPECT_TRUE(SignContent(key).empty());  // the user gives up
        EXPECT_EQ(GetLastError(), SCARD_W_CANCELLED_BY_USER);
        EXPECT_EQ(card_->signatures, 2);
        EXPECT_EQ(card_->openSessions, 0);  // nothing half-done is left open
    }
    card_->protectedPath = true;
    ScriptedPins nobody({});
    EXPECT_FALSE(SignContent(Key()).empty());
    EXPECT_TRUE(nobody.asked.empty());
    EXPECT_EQ(card_->contextLogins, 3);
}

TEST_F(Cards, WarnBeforeTheLastTryAndAreNotTriedWhenBlocked) {
    const PrivateKey key = Key();
    {
        ScriptedPins nobody({""});
        EXPECT_FAILS(SignContent(key), SCARD_E_INVALID_CHV) << "an empty one costs no try";
    }
    ScriptedPins user({"0000", "0000", "0000", "1234"});
    for (const ErrorCode code : {SCARD_W_WRONG_CHV, SCARD_W_WRONG_CHV, SCARD_W_CHV_BLOCKED, SCARD_W_CHV_BLOCKED})
        EXPECT_FAILS(SignContent(key), code);
    ASSERT_EQ(user.asked.size(), 3U);
    for (const std::size_t i : {0U, 1U, 2U}) {
        EXPECT_EQ(user.asked[i].fewTriesLeft, i > 0);
        EXPECT_EQ(user.asked[i].lastTry, i == 2);
    }
    EXPECT_EQ(card_->wrongPins, 3);
    EXPECT_TRUE(TokenErrorMessage(SCARD_W_CHV_BLOCKED).starts_with(u"Картата е блокирана"));
}

TEST_F(Cards, TellEachFaultByItsOwnName) {
    // The call that fails, what it answers, our code and its name, the detail.
    const auto faults = ReadTable(NORVIK_SOURCE_DIR "/tests/data/platform/token-faults.tsv");
    ASSERT_EQ(faults.size(), 14U);
    for (const auto& row : faults) {
        const std::string& call = row[0];
        const CK_RV value = std::stoul(row[1], nullptr, 16);
        const auto code = static_cast<ErrorCode>(std::stoul(row[2], nullptr, 16));
        const PrivateKey key = Key();  // not logged in yet
        ScriptedPins user({"1234"});
        card_->failingCall = call;
        card_->fault = value;
        EXPECT_FAILS(SignContent(key), code) << call << " " << std::hex << value;
        EXPECT_EQ(ToUtf8(TokenErrorDetail()), row[4]);
        EXPECT_FALSE(TokenErrorMessage(code).empty());
        if (value == CKR_FUNCTION_FAILED) {
            EXPECT_EQ(TokenErrorMessage(code), u"Картата отказа операцията. (CKR_FUNCTION_FAILED (0x6))");
        }
        card_->failingCall.clear();
        ScriptedPins again({"1234"});
        EXPECT_FALSE(SignContent(key).empty()) << "after " << call << " " << std::hex << value << " " << GetLastError();
    }
    EXPECT_EQ(card_->wrongPins, 0);
    EXPECT_EQ(TokenErrorMessage(SCARD_W_WRONG_CHV), u"Грешен ПИН код.");
}

TEST_F(Cards, PulledOutAtAnyMomentGiveAnErrorAndWorkAgainWhenPutBack) {
    for (const char* call : {"C_GetSlotList", "C_GetTokenInfo", "C_OpenSession", "C_GetSessionInfo", "C_Login",
                             "C_FindObjectsInit", "C_FindObjects", "C_GetAttributeValue", "C_SignInit", "C_Sign"}) {
        const PrivateKey key = Key();
        ScriptedPins user({"1234", "1234"});
        card_->pulledOutAt = call;
        EXPECT_TRUE(SignContent(key).empty()) << call;
        EXPECT_TRUE(GetLastError() == SCARD_W_REMOVED_CARD || GetLastError() == SCARD_W_RESET_CARD)
            << call << " " << std::hex << GetLastError();
        card_->pulledOutAt.clear();
        card_->present = true;
        EXPECT_FALSE(SignContent(key).empty()) << "after " << call << " " << std::hex << GetLastError();
    }
    const PrivateKey key = Key();
    card_->present = false;
    EXPECT_TRUE(posix::CertificatesOnTokens().empty());
    EXPECT_FAILS(SignContent(key), SCARD_W_REMOVED_CARD);
}

// The card says that the key is the certificate's; only the signature shows that it is not.
TEST_F(Cards, ThatSignWithAnotherKeyGiveNoSignature) {
    const PrivateKey key = Key();
    const tests::Key other = TestKey(KeyType::rsa2048, 1);
    card_->signingKey = other.get();
    ScriptedPins user({"1234"});
    EXPECT_FAILS(SignContent(key), NTE_BAD_KEY_STATE);
    EXPECT_EQ(card_->signatures, 1);
}

TEST_F(Cards, ThatHideTheirKeysShowCertificatesThatCanBeReadAndAreNoAuthoritys) {
    card_->showsPublicKey = false;
    card_->authority = Issue({.subject = {{"CN", "CA"}}, .key = TestKey(KeyType::rsa2048, 1), .ca = true}).Der();
    EXPECT_EQ(posix::CertificatesOnTokens(), std::vector{ContextOf(signer_)});
    {
        ScriptedPins user({"1234"});
        EXPECT_TRUE(IsContentSignature(signer_, SignContent(Key())));
    }
    for (const Bytes& broken : {Bytes{0x30}, Bytes(100, 0xFF), Bytes{0}}) {
        card_->certificate = broken;
        EXPECT_TRUE(posix::CertificatesOnTokens().empty());
    }
}

TEST_F(Cards, AreSeenBesideModulesThatCannotBeLoadedAndByTheirPathAlone) {
    profile_.Write("pkcs11/modules/missing.module", "module: /nonexistent/driver.so\n");
    const std::string garbage = profile_.Write("garbage.so", "no library");
    profile_.Write("pkcs11/modules/garbage.module", "module: " + garbage + "\n");
    EXPECT_TRUE(FindOnTokens(signer_));
    EXPECT_FAILS(NCryptEnumKeys(u"/nonexistent/driver.so"), NTE_KEYSET_NOT_DEF);
    EXPECT_FAILS(NCryptEnumKeys(u"/etc/hostname"), SCARD_E_NO_SERVICE);

    UseNoPkcs11Modules(profile_);
    EXPECT_TRUE(posix::CertificatesOnTokens().empty());
    const std::u16string path = std::filesystem::path(NORVIK_BINARY_DIR "/lib/norvik-fake-token.so").u16string();
    const auto keys = NCryptEnumKeys(path);
    ASSERT_EQ(keys.size(), 1U);
    EXPECT_EQ(keys[0].pszName, u"45");
    EXPECT_EQ(keys[0].certificate, ContextOf(signer_));
}

}  // namespace
