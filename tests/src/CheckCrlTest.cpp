#include "src/verification/CheckCrl.h"

#include "crypt/CryptCertificate.h"
#include "platform/Text.h"
#include "src/certificates/Choice.h"
#include "tests/src/Person.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/OnlineWorld.h"
#include "tests/support/Process.h"

namespace {

using namespace tests;
using testing::HasSubstr;

constexpr std::uint32_t kUndecided = 0x80092012, kRevoked = 0x80092010;
constexpr std::int64_t kWhen = 1'700'000'000;  // 14 November 2023, in every time zone but the easternmost
constexpr const char* kCannotTell = "Функцията за анулиране не успя да провери отмяната на сертификата.";
constexpr const char* kGood = "Сертификатът е валиден.";

// A CRL server, an authority and the folders that a check leaves its traces in.
class CheckCrlTest : public PersonTest {
  protected:
    CheckCrlTest() {
        profile_.Set("LC_ALL", "C");
        profile_.Set("http_proxy", std::nullopt);
    }
    Certificate Leaf(std::vector<std::string> urls) const {
        return Issue({.serial = {0x80, 0x01, 0x02}, .key = TestKey(KeyType::p256), .crlUrls = std::move(urls)}, root_);
    }
    std::string Url(const std::string& path) const { return server_.Url(path); }
    tessaly::CertStatusResult Check(const Certificate& leaf,
                                    verification::HashRoutine hash = verification::HashToHex) const {
        return verification::CheckCrl(ContextOf(leaf), hash, cache_, work_);
    }
    // Status and text in a form that a failed expectation shows.
    void Expect(const Certificate& leaf, std::uint32_t status, const testing::Matcher<std::string>& text) const {
        const auto answer = Check(leaf);
        EXPECT_EQ(answer.status, status);
        EXPECT_THAT(platform::ToUtf8(answer.text), text);
    }
    Bytes Listing(const Certificate& leaf, int reason = -1) const {
        return MakeCrl(root_, {.revoked = {{leaf.Serial(), kWhen, reason}}});
    }

    const std::filesystem::path work_ = profile_.Write("work/keep", "").parent_path(), cache_ = work_ / "CRLCache";
    const Certificate root_ = Issue({.subject = {{"CN", "Root"}}, .key = TestKey(KeyType::p256, 1), .ca = true});
    OnlineServer server_;
};

TEST_F(CheckCrlTest, SaysWhatACurrentListSaysInDerAndInPemWithEachReasonsText) {
    const Certificate leaf = Leaf({Url("/crl")});
    const auto date = platform::ToUtf8(tessaly::FormatShortDate(platform::FileTimeFromUnix(kWhen)));
    const auto revoked = "Сертификатът е отменен на " + date + "\n";
    const auto other = MakeCrl(root_, {.revoked = {{{0x01, 0x02}, kWhen, 1}}});
    server_.Serve("/crl", other);
    Expect(leaf, 0, kGood);
    server_.Serve("/crl", HttpAnswer{.body = PemOf("X509 CRL", other)});
    Expect(leaf, 0, kGood);
    server_.Serve("/crl", HttpAnswer{.body = PemOf("X509 CRL", Listing(leaf))});
    Expect(leaf, kRevoked, revoked);
    const std::pair<int, const char*> reasons[] = {{0, "Не е посочена причина за отмяна."},
                                                   {1, "частният ключ на субекта или \nдруги аспекти"},
                                                   {2, "частният ключ на \nсертифициращия орган (CA)"},
                                                   {3, "информация в сертификата е \nпроменена"},
                                                   {4, "Сертификатът е заменен, но"},
                                                   {5, "вече не е необходим за целта, за която е \nиздаден"},
                                                   {6, "Сертификатът е спрян."},
                                                   {9, "Не известна причина за спиране."}};
    for (const auto& [reason, text] : reasons) {
        server_.Serve("/crl", Listing(leaf, reason));
        Expect(leaf, kRevoked, testing::AllOf(HasSubstr(revoked + "Причина за прекратяване: "), HasSubstr(text)));
    }
}

TEST_F(CheckCrlTest, GoesOnToTheNextAddressUntilAListDecides) {
    const std::int64_t now = std::time(nullptr);
    const Certificate leaf = Leaf({"ldap://127.0.0.1/cn=crl", "x", Url("/expired"), Url("/future"), Url("/page"),
                                   Url("/cut"), Url("/early"), Url("/good"), Url("/never")});
    const auto listing = Listing(leaf);
    const std::string whole(platform::AsText(listing));
    server_.Serve("/expired", MakeCrl(root_, {.revoked = {{leaf.Serial(), kWhen}},
                                              .thisUpdate = now - 9 * kDay,
                                              .nextUpdate = now - 2 * kDay}));
    server_.Serve("/future", MakeCrl(root_, {.thisUpdate = now + kDay}));
    server_.Serve("/cut", HttpAnswer{.body = whole.substr(0, whole.size() / 2)});
    server_.Serve("/early", HttpAnswer{.body = whole, .claimedLength = whole.size() + 1000});
    server_.Serve("/good", MakeCrl(root_));
    Expect(leaf, 0, kGood);
    EXPECT_THAT(server_.Asked(), testing::ElementsAre("/expired", "/future", "/page", "/cut", "/early", "/good"));
}

TEST_F(CheckCrlTest, CannotTellWithoutAListOrARoutine) {
    Expect(Leaf({}), kUndecided, kCannotTell);
    EXPECT_FALSE(std::filesystem::exists(cache_));
    Expect(Leaf({"ldap://127.0.0.1/cn=crl"}), kUndecided, kCannotTell);
    EXPECT_TRUE(std::filesystem::is_directory(cache_));
    server_.Serve("/drop", HttpAnswer{.drop = true});
    Expect(Leaf({Url("/drop"), Url("/missing")}), kUndecided, kCannotTell);
    EXPECT_EQ(Check(Leaf({Url("/crl")}), nullptr).status, kUndecided);
    EXPECT_THAT(server_.Asked(), testing::Not(testing::Contains("/crl")));
}

TEST_F(CheckCrlTest, LeavesOneFileOfTheAddressThatOnlyItsOwnerReads) {
    const Certificate leaf = Leaf({Url("/crl?a=b")});
    const auto crl = MakeCrl(root_);
    server_.Serve("/crl?a=b", crl);
    std::string utf16;
    for (const char c : Url("/crl?a=b"))
        (utf16 += c) += '\0';
    auto name = RunProgram({"openssl", "dgst", "-sha256", "-r"}, {.input = utf16}).output.substr(0, 64);
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::toupper(c); });
    const auto file = profile_.Write("work/" + name + ".crl", "from the time before");

    const auto served = Check(leaf);
    EXPECT_EQ(ReadFile(file), platform::AsText(crl)) << platform::ToUtf8(served.text);
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_TRUE(std::filesystem::is_empty(cache_));

    server_.Serve("/crl?a=b", HttpAnswer{.drop = true});
    EXPECT_EQ(Check(leaf).status, kUndecided);
    EXPECT_FALSE(std::filesystem::exists(file));
}

// A SEQUENCE with its length in four octets.
std::string Sequence(const std::string& content) {
    std::string der = "\x30\x84";
    for (int shift = 24; shift >= 0; shift -= 8)
        der += static_cast<char>(content.size() >> shift);
    return der + content;
}

// The list is laid out by hand: the check does not look at its signature.
TEST_F(CheckCrlTest, FindsTheLastEntryOfFiftyMebibytesAndReadsTheReasonFromItsFirstExtension) {
    const Certificate leaf = Leaf({Url("/big")});
    const auto text = [](const Bytes& bytes) { return std::string(platform::AsText(bytes)); };
    const std::string time =
        "\x17\x0D"
        "231114221320Z";
    const std::string entry = "\x30\x15\x02\x04\x11\x22\x33\x44" + time;
    std::string entries;
    while (entries.size() < (50u << 20))
        entries += entry;
    // The extension that is looked for is the second, 2.5.29.21 with the reason 1.
    const std::string extensions =
        "\x30\x18\x30\x0A\x06\x03\x2A\x03\x04\x04\x03\x0A\x01\x06\x30\x0A\x06\x03\x55\x1D\x15\x04\x03\x0A\x01\x01";
    entries += std::string("\x30\x2F\x02\x04\x00", 5) + text(leaf.Serial()) + time + extensions;
    const std::string algorithm = "\x30\x0A\x06\x08\x2A\x86\x48\xCE\x3D\x04\x03\x02";
    const auto list = Sequence("\x02\x01\x01" + algorithm + text(root_.SubjectDer()) + time + Sequence(entries));
    server_.Serve("/big", HttpAnswer{.body = Sequence(list + algorithm + std::string("\x03\x02\x00\x00", 4))});
    Expect(leaf, kRevoked, HasSubstr("Сертификатът е спрян."));
}

TEST_F(CheckCrlTest, AChoiceIsRefusedForARevokedCertificateOnly) {
    const Certificate leaf = Leaf({Url("/crl")});
    server_.Serve("/crl", HttpAnswer{.body = "a page that is no list"});
    EXPECT_TRUE(certificates::AcceptsChoice(ContextOf(leaf)));
    server_.Serve("/crl", MakeCrl(root_));
    EXPECT_TRUE(certificates::AcceptsChoice(ContextOf(leaf)));
    EXPECT_TRUE(script_.shown.empty());
    server_.Serve("/crl", Listing(leaf, 6));
    EXPECT_FALSE(certificates::AcceptsChoice(ContextOf(leaf)));
    ASSERT_EQ(script_.shown.size(), 1U);
    EXPECT_EQ(script_.shown[0].icon, ui::Message::Icon::error);
    EXPECT_EQ(script_.shown[0].text, Check(leaf).text);
}

}  // namespace
