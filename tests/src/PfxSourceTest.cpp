#include "src/certificates/PfxSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Keys.h"
#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/certificates/Request.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedInterface.h"

namespace {

using certificates::OpenPfx;
using testing::HasSubstr;
using tests::Certificate;
using tests::KeyType;

class PfxSource : public testing::Test {
  protected:
    PfxSource() { CNorvikApp::Start(std::make_unique<tests::ScriptedInterface>(script_)); }
    ~PfxSource() override { CNorvikApp::Stop(); }

    std::u16string WritePfx(const std::string& password, const char* name = "Подпис.p12") {
        return profile_.Write(name, platform::AsText(tests::MakePfx({.certificates = {owner_}, .password = password})))
            .u16string();
    }
    // Whether the store holds the owner's certificate with its key.
    bool IsOwners(const tessaly::CryptStore& source) {
        const auto certificates = platform::CertEnumCertificatesInStore(source.store);
        return certificates.size() == 1 && platform::CopyOf(certificates[0].Encoded()) == owner_.Der() &&
               platform::CertHasPrivateKey(certificates[0]);
    }
    std::string FailureOf(const std::u16string& file, const std::string& password) {
        try {
            OpenPfx(file, platform::Secret(password));
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }
    tests::Profile profile_;
    tests::Script script_;
    const Certificate owner_ = tests::Issue({.subject = {{"CN", "Иван Петров"}}, .key = tests::TestKey(KeyType::p256)});
};

TEST_F(PfxSource, OpensAFileWithoutPasswordWhateverWasGiven) {
    const auto own = WritePfx("");
    EXPECT_TRUE(IsOwners(OpenPfx(own, platform::Secret())));
    EXPECT_TRUE(IsOwners(OpenPfx(own, platform::Secret("some other"))));
    if (!tests::HasProgram("certtool")) GTEST_SKIP() << "certtool is not installed";
    const auto certificate = profile_.Write("c.pem", owner_.Pem()), key = profile_.Write("k.pem", owner_.KeyPem());
    for (const char* kind : {"--empty-password", "--null-password"}) {
        const auto file = profile_.Folder() / (std::string(kind + 2) + ".p12");
        const auto made =
            tests::RunProgram({"certtool", "--to-p12", "--load-certificate", certificate, "--load-privkey", key,
                               "--p12-name", "x", kind, "--outder", "--outfile", file});
        ASSERT_EQ(made.status, 0) << made.Summary();
        EXPECT_TRUE(IsOwners(OpenPfx(file.u16string(), platform::Secret("wrong")))) << kind;
    }
    EXPECT_TRUE(script_.questions.empty());
}

TEST_F(PfxSource, TakesTheGivenPasswordAndAsksForNoOther) {
    const auto file = WritePfx("тайна 1");
    EXPECT_TRUE(IsOwners(OpenPfx(file, platform::Secret("тайна 1"))));
    script_.texts = {"тайна 1"};
    EXPECT_EQ(FailureOf(file, "тайна 2"), "Invalid password for " + platform::ToUtf8(file));
    EXPECT_TRUE(script_.questions.empty());
}

TEST_F(PfxSource, AsksOnceForAMissingPassword) {
    const auto file = WritePfx("тайна");
    script_.texts = {"тайна", "грешна", "тайна"};
    EXPECT_TRUE(IsOwners(OpenPfx(file, platform::Secret())));
    ASSERT_EQ(script_.questions.size(), 1U);
    EXPECT_EQ(script_.questions[0].title, u"Отваряне на Подпис.p12 ...");
    EXPECT_EQ(script_.questions[0].prompt, u"Въведете парола");
    EXPECT_TRUE(script_.questions[0].hidden);
    EXPECT_EQ(FailureOf(file, ""), "Invalid password for " + platform::ToUtf8(file));
    EXPECT_EQ(script_.questions.size(), 2U);
    const auto log = tests::ReadFile(profile_.Folder() / "tmp/Norvik/Norvik.log");
    EXPECT_THAT(log, testing::Not(testing::AnyOf(HasSubstr("тайна"), HasSubstr("грешна"))));
}

TEST_F(PfxSource, LeavesTheStoreClosedWhenThePersonCancelsOrNobodyIsThere) {
    const auto file = WritePfx("тайна");
    const auto cancelled = OpenPfx(file, platform::Secret());
    EXPECT_FALSE(cancelled.store);
    EXPECT_EQ(cancelled.lastError, 0U);
    EXPECT_EQ(script_.questions.size(), 1U);
    const auto gathered = certificates::Gather({.file = file, .store = {}, .filter = {}, .password = {}});
    EXPECT_EQ(gathered.failure, u"Cannot open file.\n");
    CNorvikApp::Start();  // with nobody to ask
    EXPECT_FALSE(OpenPfx(file, platform::Secret()).store);
}

TEST_F(PfxSource, CallsEverythingThatIsNoPfxAWrongPassword) {
    const auto bytes = tests::MakePfx({.certificates = {owner_}, .password = "x"});
    const std::string whole(platform::AsText(bytes));
    for (const auto& content : {std::string(), std::string("plain text"), owner_.Pem(),
                                whole.substr(0, whole.size() / 2), std::string("\x30\x80\x02\x01\x03", 5)}) {
        const auto file = profile_.Write("a.pfx", content);
        EXPECT_EQ(FailureOf(file.u16string(), ""), "Invalid password for " + file.string()) << content.size();
    }
    EXPECT_TRUE(script_.questions.empty()) << "nobody is asked for the password of what has none";
}

TEST_F(PfxSource, IsChosenByTheExtensionInAnyLetterCase) {
    for (const char* name : {"A.PFX", "b.P12", "в.pFx"}) {
        const auto request = certificates::ReadRequest(
            (u"{\"Filename\":\"" + WritePfx("тайна", name) + u"\",\"Password\":\"тайна\"}").c_str());
        ASSERT_TRUE(request);
        EXPECT_EQ(certificates::Gather(*request).certificates.GetCertificateCount(), 1U) << name;
    }
    for (const auto& other : {WritePfx("", "c.pfx.cer"), (profile_.Folder() / "missing.pfx").u16string()}) {
        const auto gathered = certificates::Gather({.file = other, .store = {}, .filter = {}, .password = {}});
        EXPECT_TRUE(gathered.failure.starts_with(u"Cannot open file.\nMsg: ")) << platform::ToUtf8(other);
    }
}

}  // namespace
