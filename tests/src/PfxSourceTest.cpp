#include "src/certificates/PfxSource.h"

#include "platform/Keys.h"
#include "src/certificates/Request.h"
#include "tests/src/Person.h"
#include "tests/support/Process.h"

namespace {

using certificates::OpenPfx;
using testing::HasSubstr;
using namespace tests;

class PfxSource : public PersonTest {
  protected:
    std::u16string Write(const std::string& password, const char* name = "Подпис.p12") {
        return profile_.Write(name, platform::AsText(MakePfx({.certificates = {owner_}, .password = password})))
            .u16string();
    }
    // What came of it: the owner's certificate with its key, nothing, or the message of what was thrown.
    std::string Outcome(const std::u16string& file, const char* password = "") try {
        const auto source = OpenPfx(file, platform::Secret(password));
        if (!source.store) return "closed, error " + std::to_string(source.lastError);
        const auto certificates = platform::CertEnumCertificatesInStore(source.store);
        return certificates.size() == 1 && platform::CopyOf(certificates[0].Encoded()) == owner_.Der() &&
                       platform::CertHasPrivateKey(certificates[0])
                   ? "owner's"
                   : "another";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    static std::string Invalid(const std::u16string& file) { return "Invalid password for " + platform::ToUtf8(file); }

    const Certificate owner_ = Issue({.subject = {{"CN", "Иван Петров"}}, .key = TestKey(KeyType::p256)});
};

TEST_F(PfxSource, OpensAFileWithoutPasswordWhateverWasGiven) {
    for (const auto* password : {"", "some other"})
        EXPECT_EQ(Outcome(Write(""), password), "owner's");
    if (!HasProgram("certtool")) GTEST_SKIP() << "certtool is not installed";
    const auto certificate = profile_.Write("c.pem", owner_.Pem()), key = profile_.Write("k.pem", owner_.KeyPem());
    for (const char* kind : {"--empty-password", "--null-password"}) {
        const auto file = profile_.Folder() / (std::string(kind + 2) + ".p12");
        const auto made = RunProgram({"certtool", "--to-p12", "--load-certificate", certificate, "--load-privkey", key,
                                      "--p12-name", "x", kind, "--outder", "--outfile", file});
        ASSERT_EQ(made.status, 0) << made.Summary();
        EXPECT_EQ(Outcome(file.u16string(), "wrong"), "owner's") << kind;
    }
    EXPECT_TRUE(script_.questions.empty());
}

TEST_F(PfxSource, TakesTheGivenPasswordOrAsksOnceForAMissingOne) {
    const auto file = Write("тайна 1");
    script_.texts = {"тайна 1", "грешна", "тайна 1"};
    EXPECT_EQ(Outcome(file, "тайна 1"), "owner's");
    EXPECT_EQ(Outcome(file, "тайна 2"), Invalid(file));
    EXPECT_TRUE(script_.questions.empty());
    EXPECT_EQ(Outcome(file), "owner's");
    ASSERT_EQ(script_.questions.size(), 1U);
    EXPECT_EQ(script_.questions[0].title, u"Отваряне на Подпис.p12 ...");
    EXPECT_EQ(script_.questions[0].prompt, u"Въведете парола");
    EXPECT_TRUE(script_.questions[0].hidden);
    EXPECT_EQ(Outcome(file), Invalid(file));
    EXPECT_EQ(script_.questions.size(), 2U);
    EXPECT_THAT(Log(), testing::Not(testing::AnyOf(HasSubstr("тайна"), HasSubstr("грешна"))));
}

TEST_F(PfxSource, LeavesTheStoreClosedWhenThePersonCancelsOrNobodyIsThere) {
    const auto file = Write("тайна");
    EXPECT_EQ(Outcome(file), "closed, error 0");
    EXPECT_EQ(script_.questions.size(), 1U);
    const auto gathered = certificates::Gather({.file = file, .store = {}, .filter = {}, .password = {}});
    EXPECT_EQ(gathered.failure, u"Cannot open file.\n");
    CNorvikApp::Start();  // with nobody to ask
    EXPECT_THAT(Outcome(file), HasSubstr("closed"));
}

TEST_F(PfxSource, CallsEverythingThatIsNoPfxAWrongPassword) {
    const auto file = Write("x");
    const auto whole = ReadFile(file);
    for (const auto& content : {std::string(), std::string("plain text"), owner_.Pem(),
                                whole.substr(0, whole.size() / 2), std::string("\x30\x80\x02\x01\x03", 5)}) {
        profile_.Write(file, content);
        EXPECT_EQ(Outcome(file), Invalid(file)) << content.size();
    }
    EXPECT_TRUE(script_.questions.empty()) << "nobody is asked for the password of what has none";
}

TEST_F(PfxSource, IsChosenByTheExtensionInAnyLetterCase) {
    for (const char* name : {"A.PFX", "b.P12", "в.pFx"}) {
        const auto request = certificates::ReadRequest(
            (u"{\"Filename\":\"" + Write("тайна", name) + u"\",\"Password\":\"тайна\"}").c_str());
        ASSERT_TRUE(request);
        EXPECT_EQ(certificates::Gather(*request).certificates.GetCertificateCount(), 1U) << name;
    }
    for (const auto& other : {Write("", "c.pfx.cer"), (profile_.Folder() / "missing.pfx").u16string()}) {
        const auto gathered = certificates::Gather({.file = other, .store = {}, .filter = {}, .password = {}});
        EXPECT_TRUE(gathered.failure.starts_with(u"Cannot open file.\nMsg: ")) << platform::ToUtf8(other);
    }
}

}  // namespace
