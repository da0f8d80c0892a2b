#include "src/certificates/Request.h"

#include <algorithm>

#include "crypt/CryptCertificate.h"
#include "platform/Keys.h"
#include "platform/Text.h"
#include "src/certificates/PfxSource.h"
#include "tests/src/Person.h"
#include "tests/support/Process.h"

namespace {

using namespace tests;
using certificates::OpenPfx;
using testing::HasSubstr;
using Names = std::vector<std::string>;

std::u16string Lower(std::u16string text) {
    std::ranges::transform(text, text.begin(), platform::CharLowerW);
    return text;
}

class CertificateFilter : public testing::Test {
  protected:
    const std::time_t now_ = std::time(nullptr);
    Profile profile_;
    const Certificate ca_ = Issue({.subject = {{"CN", "CA"}}, .key = TestKey(KeyType::p256), .ca = true});
    const Certificate issued_ = Issue({.subject = {{"CN", "issued"}}}, ca_);
    const Certificate bare_ = Issue({.subject = {{"CN", "bare"}}, .subjectKeyId = false, .authorityKeyId = false});
    const Certificate expired_ =
        Issue({.subject = {{"CN", "expired"}}, .notBefore = now_ - 9 * kDay, .notAfter = now_ - kDay}, ca_);
    const Certificate future_ = Issue({.subject = {{"CN", "future"}}, .notBefore = now_ + kDay}, ca_);
    const std::string file_ = Pem("all.pem", {expired_, issued_, bare_, future_});

    std::string Pem(const char* name, const std::vector<Certificate>& certificates) const {
        std::string pem;
        for (const auto& certificate : certificates)
            pem += certificate.Pem();
        return profile_.Write(name, pem).string();
    }
    static certificates::GatheredCertificates Gather(const std::string& json) {
        const auto request = certificates::ReadRequest(platform::ToWide(json).c_str());
        EXPECT_TRUE(request.has_value()) << json;
        return certificates::Gather(*request);
    }
    static std::string FailureOf(const std::string& json) { return platform::ToUtf8(Gather(json).failure); }
    static Names NamesOf(const std::string& json) {
        const auto gathered = Gather(json);
        EXPECT_EQ(gathered.failure, u"");
        Names names;
        for (const auto& certificate : platform::CertEnumCertificatesInStore(gathered.certificates.store))
            names.push_back(platform::ToUtf8(tessaly::CryptCertificate(certificate, true).GetSubjectName()));
        return names;
    }
    static std::string FileRequest(const std::string& file, const std::string& members = "") {
        return R"({"Filename":")" + file + "\"" + members + "}";
    }
};

// $I in a row stands for the thumbprint of the issued certificate, $A for its authority, $i and $a for the same in
// small letters, $P for a part of it, $B and $E for the thumbprints of the bare and the expired one.
TEST_F(CertificateFilter, JudgesByTheFourLists) {
    const auto authority = tessaly::CryptCertificate(platform::ByteView(issued_.Der())).GetAuthorityKeyId();
    ASSERT_EQ(authority.size(), 40U);
    const auto filled = [&](std::string row) {
        const auto thumbprint = platform::ToWide(issued_.Thumbprint());
        const std::u16string texts[] = {thumbprint,
                                        authority,
                                        Lower(thumbprint),
                                        Lower(authority),
                                        thumbprint.substr(1),
                                        platform::ToWide(bare_.Thumbprint()),
                                        platform::ToWide(expired_.Thumbprint())};
        for (std::size_t i = 0; i < std::size(texts); ++i)
            for (auto at = row.npos; (at = row.find({'$', "IAiaPBE"[i]})) != row.npos;)
                row.replace(at, 2, platform::ToUtf8(texts[i]));
        return row;
    };
    struct Case {
        const char *what, *members;
        Names kept;
    };
    const Case cases[] = {
        {"what is valid now, in the file's order", "", {"issued", "bare"}},
        {"letter case does not matter", R"(,"ThumbprintInclude":["$i"])", {"issued"}},
        {"all else does", R"(,"ThumbprintInclude":[":$I"," $I","$I\n","$P","$I0","$I\u0000","\ud800"])", {}},
        {"exclude one", R"(,"ThumbprintExclude":["AA","$i"])", {"bare"}},
        {"excluding beats including", R"(,"ThumbprintInclude":["$I"],"ThumbprintExclude":["$I"])", {}},
        {"by authority", R"(,"AuthIdInclude":["$a"])", {"issued"}},
        {"not by authority", R"(,"AuthIdExclude":["$A"])", {"bare"}},
        {"excluding the authority beats the certificate", R"(,"AuthIdExclude":["$A"],"ThumbprintInclude":["$I"])", {}},
        {"either is enough", R"(,"AuthIdInclude":["$A"],"ThumbprintInclude":["$B"])", {"issued", "bare"}},
        {"an empty entry stands for no authority", R"(,"AuthIdInclude":[""])", {"bare"}},
        {"empty arrays keep all", R"(,"AuthIdInclude":[],"ThumbprintInclude":[])", {"issued", "bare"}},
        {"what is no array is no list",
         R"(,"ThumbprintInclude":"$I","ThumbprintExclude":{"0":"$I"},"AuthIdExclude":7)",
         {"issued", "bare"}},
        {"an expired one is not brought back", R"(,"ThumbprintInclude":["$E"])", {}},
    };
    for (const auto& [what, members, kept] : cases)
        EXPECT_EQ(NamesOf(FileRequest(file_, filled(members))), kept) << what;
}

TEST_F(CertificateFilter, JoinsFileAndStoreAndHoldsEachOnceAndTheLaterOfTwoWithOneSerialNumber) {
    InstallCertificate(profile_, "Others", issued_);
    InstallCertificate(profile_, "Others", ca_);
    EXPECT_EQ(NamesOf(FileRequest(file_, R"(,"Store":"Others")")), (Names{"issued", "bare", "CA"}));
    EXPECT_EQ(NamesOf(R"({"Store":"Others","ThumbprintExclude":[")" + ca_.Thumbprint() + "\"]}"), Names{"issued"});
    const auto from = [&](const char* name, std::int64_t days) {
        return Issue({.subject = {{"CN", name}}, .serial = {1, 2}, .notBefore = now_ - days * kDay}, ca_);
    };
    const auto older = from("older", 3), newer = from("newer", 2);
    EXPECT_EQ(NamesOf(FileRequest(Pem("two.pem", {older, newer, older}))), Names{"newer"});
}

TEST_F(CertificateFilter, TellsASourceWithoutCertificatesFromOneThatIsFilteredOut) {
    const auto only = Pem("expired.pem", {expired_});
    EXPECT_EQ(NamesOf(FileRequest(only)), Names());
    EXPECT_EQ(FailureOf(R"({"Store":"../MY"})"), "Cannot open certificate store.\n");
    EXPECT_EQ(FailureOf(FileRequest(only, R"(,"Store":"Nobody")")), "Cannot open certificate store.\n")
        << "the second source fails the whole";
    EXPECT_THAT(FailureOf(FileRequest("/nonexistent/a.cer")),
                testing::MatchesRegex("Cannot open file.\nMsg: .*\nError 0x[23]"));
}

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
