#include "src/verification/CheckCrl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "crypt/CryptCertificate.h"
#include "platform/Crls.h"
#include "platform/Files.h"
#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/certificates/Choice.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedInterface.h"

namespace {

using testing::ElementsAre;
using tests::Certificate;
using tests::CrlSpec;
using tests::HttpAnswer;
using tests::kDay;
using tests::KeyType;

constexpr std::uint32_t kUndecided = 0x80092012, kRevoked = 0x80092010;
constexpr std::int64_t kWhen = 1'700'000'000;  // 14 November 2023, in every time zone but the easternmost
constexpr const char* kCannotTell = "Функцията за анулиране не успя да провери отмяната на сертификата.";
constexpr const char* kGood = "Сертификатът е валиден.";

std::string TextOf(const tests::Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

// A CRL server, an authority and the folders that a check leaves its traces in.
class CheckCrlTest : public testing::Test {
  protected:
    CheckCrlTest() {
        profile_.Set("LC_ALL", "C");
        profile_.Set("http_proxy", std::nullopt);
    }
    Certificate Leaf(std::vector<std::string> urls) const {
        return Issue({.subject = {{"CN", "Иван"}},
                      .serial = {0x80, 0x01, 0x02},
                      .key = tests::TestKey(KeyType::p256),
                      .crlUrls = std::move(urls)},
                     root_);
    }
    void Serve(const std::string& path, std::string body) { pages_[path] = {.body = std::move(body)}; }
    std::string Url(const std::string& path) const { return server_.Url(path); }
    tessaly::CertStatusResult Check(const Certificate& leaf,
                                    verification::HashRoutine hash = verification::HashToHex) const {
        return verification::CheckCrl(platform::CertCreateCertificateContext(leaf.Der()), hash, cache_, work_);
    }
    // Status and text in a form that a failed expectation shows.
    void Expect(const Certificate& leaf, std::uint32_t status, const std::string& text) const {
        const auto answer = Check(leaf);
        EXPECT_EQ(answer.status, status);
        EXPECT_EQ(platform::ToUtf8(answer.text), text);
    }
    tests::Bytes Listing(const Certificate& leaf, int reason = -1) const {
        return MakeCrl(root_, {.revoked = {{leaf.Serial(), kWhen, reason}}});
    }
    std::vector<std::string> Asked() const {
        std::vector<std::string> targets;
        for (const auto& request : server_.Requests())
            targets.push_back(request.target);
        return targets;
    }

    tests::Profile profile_;
    std::filesystem::path work_ = profile_.Write("work/keep", "").parent_path(), cache_ = work_ / "CRLCache";
    Certificate root_ =
        tests::Issue({.subject = {{"CN", "Root"}}, .key = tests::TestKey(KeyType::p256, 1), .ca = true});
    std::map<std::string, HttpAnswer> pages_;
    tests::HttpServer server_{[this](const tests::HttpRequest& request) {
        const auto page = pages_.find(request.target);
        return page == pages_.end() ? HttpAnswer{.status = 404, .body = "<html>not here</html>"} : page->second;
    }};
};

TEST_F(CheckCrlTest, SaysWhatACurrentListSaysInDerAndInPem) {
    const Certificate leaf = Leaf({Url("/crl")});
    const auto date = platform::ToUtf8(tessaly::FormatShortDate(platform::FileTimeFromUnix(kWhen)));
    for (const bool pem : {false, true}) {
        const auto form = [&](const tests::Bytes& der) { return pem ? tests::PemOf("X509 CRL", der) : TextOf(der); };
        Serve("/crl", form(MakeCrl(root_, {.revoked = {{{0x01, 0x02}, kWhen, 1}}})));
        Expect(leaf, 0, kGood);
        Serve("/crl", form(Listing(leaf)));
        Expect(leaf, kRevoked, "Сертификатът е отменен на " + date + "\n");
    }
}

TEST_F(CheckCrlTest, GivesEachReasonItsText) {
    const std::pair<int, std::string> reasons[] = {{0, "Не е посочена причина за отмяна."},
                                                   {1, "частният ключ на субекта или \nдруги аспекти"},
                                                   {2, "частният ключ на \nсертифициращия орган (CA)"},
                                                   {3, "информация в сертификата е \nпроменена"},
                                                   {4, "Сертификатът е заменен, но"},
                                                   {5, "вече не е необходим за целта, за която е \nиздаден"},
                                                   {6, "Сертификатът е спрян."},
                                                   {9, "Не известна причина за спиране."}};
    const Certificate leaf = Leaf({Url("/crl")});
    for (const auto& [reason, text] : reasons) {
        Serve("/crl", TextOf(Listing(leaf, reason)));
        const auto answer = platform::ToUtf8(Check(leaf).text);
        EXPECT_THAT(answer, testing::HasSubstr("\nПричина за прекратяване: ")) << reason;
        EXPECT_THAT(answer, testing::HasSubstr(text)) << reason;
    }
}

TEST_F(CheckCrlTest, GoesOnToTheNextAddressUntilAListDecides) {
    const std::int64_t now = std::time(nullptr);
    const Certificate leaf = Leaf({"ldap://127.0.0.1/cn=crl", "x", Url("/expired"), Url("/future"), Url("/page"),
                                   Url("/cut"), Url("/early"), Url("/good"), Url("/never")});
    Serve(
        "/expired",
        TextOf(MakeCrl(
            root_, {.revoked = {{leaf.Serial(), kWhen}}, .thisUpdate = now - 9 * kDay, .nextUpdate = now - 2 * kDay})));
    Serve("/future", TextOf(MakeCrl(root_, {.thisUpdate = now + kDay})));
    const auto whole = TextOf(Listing(leaf));
    Serve("/cut", whole.substr(0, whole.size() / 2));
    pages_["/early"] = {.body = whole, .claimedLength = whole.size() + 1000};
    Serve("/good", TextOf(MakeCrl(root_)));
    Expect(leaf, 0, kGood);
    EXPECT_THAT(Asked(), ElementsAre("/expired", "/future", "/page", "/cut", "/early", "/good"));
}

TEST_F(CheckCrlTest, CannotTellWithoutAListOrARoutine) {
    Expect(Leaf({}), kUndecided, kCannotTell);
    EXPECT_FALSE(std::filesystem::exists(cache_));
    Expect(Leaf({"ldap://127.0.0.1/cn=crl"}), kUndecided, kCannotTell);
    EXPECT_TRUE(std::filesystem::is_directory(cache_));
    pages_["/drop"] = {.drop = true};
    Expect(Leaf({Url("/drop"), Url("/missing")}), kUndecided, kCannotTell);
    const auto asked = Asked().size();
    EXPECT_EQ(Check(Leaf({Url("/crl")}), nullptr).status, kUndecided);
    EXPECT_EQ(Asked().size(), asked);
}

TEST_F(CheckCrlTest, LeavesOneFileOfTheAddressThatOnlyItsOwnerReads) {
    const Certificate leaf = Leaf({Url("/crl?a=b")});
    const auto crl = TextOf(MakeCrl(root_));
    Serve("/crl?a=b", crl);
    std::string utf16;
    for (const char16_t c : platform::ToWide(Url("/crl?a=b")))
        (utf16 += static_cast<char>(c & 0xFF)) += static_cast<char>(c >> 8);
    auto name = tests::RunProgram({"openssl", "dgst", "-sha256", "-r"}, {.input = utf16}).output.substr(0, 64);
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::toupper(c); });
    const auto file = profile_.Write("work/" + name + ".crl", "from the time before");

    const auto served = Check(leaf);
    EXPECT_EQ(tests::ReadFile(file), crl) << platform::ToUtf8(served.text);
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_TRUE(std::filesystem::is_empty(cache_));

    pages_["/crl?a=b"] = {.drop = true};
    EXPECT_EQ(Check(leaf).status, kUndecided);
    EXPECT_FALSE(std::filesystem::exists(file));
}

void AppendHeader(std::string& der, char tag, std::size_t length) {
    (der += tag) += '\x84';
    for (int shift = 24; shift >= 0; shift -= 8)
        der += static_cast<char>(length >> shift);
}

constexpr char kTime[] =
    "\x17\x0D"
    "231114221320Z";

// A list laid out by hand around its encoded entries: the check does not look at the signature.
std::string ListOf(const std::string& entries, const Certificate& issuer) {
    const std::string algorithm = "\x30\x0A\x06\x08\x2A\x86\x48\xCE\x3D\x04\x03\x02";
    const std::string fields = "\x02\x01\x01" + algorithm + TextOf(issuer.SubjectDer()) + kTime;
    const std::string signature("\x03\x02\x00\x00", 4);
    std::string list, signedPart, crl;
    AppendHeader(list, '\x30', entries.size());
    AppendHeader(signedPart, '\x30', fields.size() + list.size() + entries.size());
    signedPart += fields + list + entries;
    AppendHeader(crl, '\x30', signedPart.size() + algorithm.size() + signature.size());
    return crl + signedPart + algorithm + signature;
}

TEST_F(CheckCrlTest, FindsTheLastEntryOfFiftyMebibytesAndReadsTheReasonFromItsFirstExtension) {
    const Certificate leaf = Leaf({Url("/big")});
    const std::string entry = std::string("\x30\x15\x02\x04\x11\x22\x33\x44") + kTime;
    std::string entries;
    while (entries.size() < (50u << 20))
        entries += entry;
    // The extension that is looked for is the second, 2.5.29.21 with the reason 1.
    const std::string extensions =
        "\x30\x18\x30\x0A\x06\x03\x2A\x03\x04\x04\x03\x0A\x01\x06\x30\x0A\x06\x03\x55\x1D\x15\x04\x03\x0A\x01\x01";
    entries += std::string("\x30\x2F\x02\x04\x00", 5) + TextOf(leaf.Serial()) + kTime + extensions;
    Serve("/big", ListOf(entries, root_));
    const auto answer = Check(leaf);
    EXPECT_EQ(answer.status, kRevoked);
    EXPECT_THAT(platform::ToUtf8(answer.text), testing::HasSubstr("Сертификатът е спрян."));
}

TEST_F(CheckCrlTest, AChoiceIsRefusedForARevokedCertificateOnly) {
    tests::Script script;
    const auto application = CNorvikApp::Start(std::make_unique<tests::ScriptedInterface>(script));
    const Certificate leaf = Leaf({Url("/crl")});
    const auto context = platform::CertCreateCertificateContext(leaf.Der());
    EXPECT_TRUE(certificates::AcceptsChoice(context));  // a page that is no list
    Serve("/crl", TextOf(MakeCrl(root_)));
    EXPECT_TRUE(certificates::AcceptsChoice(context));
    EXPECT_TRUE(script.shown.empty());
    Serve("/crl", TextOf(Listing(leaf, 6)));
    EXPECT_FALSE(certificates::AcceptsChoice(context));
    ASSERT_EQ(script.shown.size(), 1U);
    EXPECT_EQ(script.shown[0].icon, ui::Message::Icon::error);
    EXPECT_EQ(script.shown[0].text, Check(leaf).text);
    CNorvikApp::Stop();
}

}  // namespace
