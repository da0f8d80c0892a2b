// What a signature made here looks like, byte for byte, and what is left when it cannot be made.

#include <sys/resource.h>

#include <csignal>

#include "platform/Hash.h"
#include "platform/formats/Der.h"
#include "tests/toolkit/SignFixture.h"
#include "toolkit/cms/SignatureAlgorithms.h"

namespace {

using namespace tests;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kContentType = "1.2.840.113549.1.9.3";
constexpr const char* kMessageDigest = "1.2.840.113549.1.9.4";
constexpr const char* kSigningTime = "1.2.840.113549.1.9.5";
constexpr const char* kSigningCertificateV2 = "1.2.840.113549.1.9.16.2.47";

class SignTest : public SignFixture {
  protected:
    // All names below the profile's folder, so that nothing can be left behind unseen.
    [[nodiscard]] std::vector<std::string> Everything() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(profile_.Folder()))
            names.push_back(entry.path().string());
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(SignTest, FieldsAndAttributesStandInTheirOrder) {
    for (const bool attached : {true, false}) {
        const auto output = Sign("Some content\r\n", {.attached = attached});
        std::string shape = Shape(platform::AsBytes(ReadFile(output)));
        // The issuer, twice, is the certificate's and not looked into here.
        const std::string issuer = Shape(pki_.ca.SubjectDer());
        for (std::size_t at; (at = shape.find(issuer)) != std::string::npos;)
            shape.replace(at, issuer.size(), "issuer");
        const std::string serial = std::string("int ").append(pki_.signer.SerialHex());
        for (std::size_t at; (at = shape.find(serial)) != std::string::npos;)
            shape.replace(at, serial.size(), "serial");
        EXPECT_EQ(shape, std::string("S(1.2.840.113549.1.7.2 [0](S(int 01 T(S(2.16.840.1.101.3.4.2.1 null)) ") +
                             (attached ? "S(1.2.840.113549.1.7.1 [0](octets 14)) " : "S(1.2.840.113549.1.7.1) ") +
                             "[0](cert cert cert) "
                             "T(S(int 01 S(issuer serial) S(2.16.840.1.101.3.4.2.1 null) "
                             "[0](S(1.2.840.113549.1.9.3 T(1.2.840.113549.1.7.1)) "
                             "S(1.2.840.113549.1.9.4 T(octets 32)) "
                             "S(1.2.840.113549.1.9.5 T(utc 13)) "
                             "S(1.2.840.113549.1.9.16.2.47 T(S(S(S(S(2.16.840.1.101.3.4.2.1 null) octets 32 "
                             "S(S([4](issuer)) serial))))))) "
                             "S(1.2.840.113549.1.1.11 null) octets 256)))))");
    }
}

TEST_F(SignTest, Sha1NamesOnlyTheKeyAndStillHashesTheCertificateWithSha256) {
    const auto signer = ReadSigner(Sign("content", {.hash = "sha1"}));
    EXPECT_EQ(signer.signatureOid, "1.2.840.113549.1.1.1");
    EXPECT_EQ(Shape(AttributeValue(signer.signedAttributes, kMessageDigest)), "octets 20");
    const Bytes value = AttributeValue(signer.signedAttributes, kSigningCertificateV2);
    const Bytes hash = platform::Digest(platform::HashAlgorithm::sha256, pki_.signer.Der());
    EXPECT_NE(std::search(value.begin(), value.end(), hash.begin(), hash.end()), value.end());
}

TEST(SignatureOid, FallsToTheFamilysOldestForOtherHashes) {
    using platform::HashAlgorithm;
    using platform::KeyAlgorithm;
    constexpr HashAlgorithm kHashes[] = {HashAlgorithm::sha1, HashAlgorithm::sha256, HashAlgorithm::sha384,
                                         HashAlgorithm::sha512};
    const std::string rsa = "1.2.840.113549.1.1.", ecdsa = "1.2.840.10045.4.", dsa = "1.2.840.10040.4.3";
    const std::pair<KeyAlgorithm, std::vector<std::string>> rows[] = {
        {KeyAlgorithm::rsa, {rsa + "1", rsa + "11", rsa + "12", rsa + "13"}},
        {KeyAlgorithm::ecdsa, {ecdsa + "1", ecdsa + "3.2", ecdsa + "3.3", ecdsa + "3.4"}},
        {KeyAlgorithm::dsa, {dsa, "2.16.840.1.101.3.4.3.2", dsa, dsa}},
    };
    for (const auto& [key, names] : rows)
        for (std::size_t i = 0; i < names.size(); ++i)
            EXPECT_EQ(toolkit::cms::SignatureOid(key, kHashes[i]), names[i]);
}

TEST_F(SignTest, AttributesAreThoseWhoseTextIsExactlyOneOrTrue) {
    const struct {
        const char* json;
        bool cades;
        std::vector<std::string> expected;
    } cases[] = {
        {R"({"contentType":1,"messageDigest":"true","signingTime":"1"})",
         false,
         {kContentType, kMessageDigest, kSigningTime}},
        {R"({"contentType":"TRUE","messageDigest":true,"signingTime":"yes"})", false, {kMessageDigest}},
        {R"({"messageDigest":true,"signingTime":false,"signingCertificateV2":2})",
         true,
         {kMessageDigest, kSigningCertificateV2}},
        {R"({"signingCertificateV2":true,"messageDigest":true})", false, {kMessageDigest, kSigningCertificateV2}},
        {"", true, {kSigningCertificateV2}},
        {"", false, {}},
    };
    for (const auto& c : cases) {
        const auto signer = ReadSigner(Sign("content", {.cades = c.cades, .attributes = c.json}));
        EXPECT_EQ(signer.signedTypes, c.expected) << c.json;
        EXPECT_TRUE(signer.unsignedTypes.empty());
    }
}

TEST_F(SignTest, DerOrderSortsTheSameAttributes) {
    const auto usual = ReadSigner(Sign("content")), sorted = ReadSigner(Sign("content", {.derOrder = true}));
    EXPECT_THAT(usual.signedTypes, ElementsAre(kContentType, kMessageDigest, kSigningTime, kSigningCertificateV2));
    EXPECT_THAT(sorted.signedTypes, ElementsAre(kContentType, kSigningTime, kMessageDigest, kSigningCertificateV2));
    EXPECT_FALSE(std::is_sorted(usual.signedAttributes.begin(), usual.signedAttributes.end()));
    EXPECT_TRUE(std::is_sorted(sorted.signedAttributes.begin(), sorted.signedAttributes.end()));
}

TEST_F(SignTest, ChainGoesFromTheRootToTheSigner) {
    EXPECT_THAT(ReadSigner(Sign("content")).certificates,
                ElementsAre(pki_.root.Der(), pki_.ca.Der(), pki_.signer.Der()));
    EXPECT_THAT(ReadSigner(Sign("content", {.chain = false})).certificates, ElementsAre(pki_.signer.Der()));

    const Certificate self = Issue({.subject = {{"CN", "Self"}}, .key = TestKey(KeyType::p256, 7)});
    InstallCertificate(profile_, "MY", self, true);
    ASSERT_TRUE(TrySign(Scratch("document.bin"), Scratch("self.p7m"), {}, self.Thumbprint())) << log_;
    EXPECT_THAT(ReadSigner(Scratch("self.p7m")).certificates, ElementsAre(self.Der()));
    // Without the issuing CA in a store the chain is as long as it can be.
    std::filesystem::remove_all(profile_.Stores() / "CA");
    EXPECT_THAT(ReadSigner(Sign("content")).certificates, ElementsAre(pki_.signer.Der()));
}

TEST_F(SignTest, FailureSaysWhyAndLeavesNothing) {
    const auto input = profile_.Write("f", "content");
    const Certificate keyless = Issue({.subject = {{"CN", "Без ключ"}}, .key = TestKey(KeyType::p256, 8)});
    InstallCertificate(profile_, "MY", keyless);
    profile_.Write("taken/inside", "");
    const auto before = Everything();

    toolkit::CkCrypt2W bare;
    EXPECT_FALSE(bare.CreateP7M(Wide(input.string()).c_str(), Wide(Scratch("o").string()).c_str()));
    EXPECT_THAT(Narrow(bare.lastErrorText()), HasSubstr("No signing certificate(s) has been set."));

    EXPECT_FALSE(TrySign(input, Scratch("o"), {}, keyless.Thumbprint()));
    EXPECT_THAT(log_, HasSubstr("Certificate does not have the associated private key."));
    EXPECT_THAT(log_, HasSubstr("CN=Без ключ"));

    EXPECT_FALSE(TrySign(input, Scratch("o"), {.hash = "md5"}));
    EXPECT_THAT(log_, HasSubstr("md5"));
    EXPECT_FALSE(TrySign(Scratch("missing"), Scratch("o")));
    EXPECT_THAT(log_, HasSubstr("Failed to open the input file."));
    EXPECT_FALSE(TrySign(profile_.Folder(), Scratch("o")));
    EXPECT_FALSE(TrySign(input, Scratch("no/such/folder/o")));
    EXPECT_THAT(log_, HasSubstr("Failed to create the output file."));
    EXPECT_FALSE(TrySign(input, Scratch("taken")));
    EXPECT_EQ(Everything(), before);
}

TEST_F(SignTest, FullDiskKeepsTheOldOutput) {
    const auto input = profile_.Write("big", std::string(3u << 20, 'x'));
    const auto output = profile_.Write("big.p7m", "the old one");
    const auto before = Everything();
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = old;
    small.rlim_cur = 2u << 20;
    setrlimit(RLIMIT_FSIZE, &small);
    const bool made = TrySign(input, output);
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, handler);
    EXPECT_FALSE(made);
    EXPECT_THAT(log_, HasSubstr("Failed to write the output file."));
    EXPECT_EQ(ReadFile(output), "the old one");
    EXPECT_EQ(Everything(), before);
}

TEST_F(SignTest, OutputMayBeTheInput) {
    for (const std::size_t size : {std::size_t{10}, std::size_t{5} << 20}) {
        const std::string content(size, 'c');
        const auto file = profile_.Write("same", content);
        ASSERT_TRUE(TrySign(file, file)) << log_;
        const std::string message = ReadFile(file);
        EXPECT_NE(message.find(content), std::string::npos);
        EXPECT_GT(message.size(), content.size());
    }
}

// The outermost lengths grow by an octet when the message passes 2^24 bytes, and how long it becomes is known only
// when the content has been written already.
TEST_F(SignTest, LengthThatWasGuessedWrongIsMended) {
    constexpr std::size_t kEdge = std::size_t{1} << 24;
    const std::size_t around = std::filesystem::file_size(Sign(std::string(std::size_t{2} << 20, 'x'))) - (2u << 20);
    for (const std::size_t size : {kEdge - around - 400, kEdge - around, kEdge - 1, kEdge, kEdge + 1}) {
        std::string content(size, 'y');
        content.back() = 'z';
        const std::string message = ReadFile(Sign(content));
        const auto outer = platform::SoleElement(platform::AsBytes(message), platform::tag::kSequence);
        ASSERT_TRUE(outer) << size;
        EXPECT_THAT(Shape(outer->encoded),
                    HasSubstr(std::string("[0](octets ").append(std::to_string(size)).append(")")))
            << size;
        EXPECT_EQ(Shape(outer->encoded).find("malformed"), std::string::npos) << size;
        EXPECT_NE(message.find(content), std::string::npos) << size;
        toolkit::CkCrypt2W ours;
        EXPECT_TRUE(ours.Implementation().VerifyFile(Scratch("document.bin.p7m"))) << Narrow(ours.lastErrorText());
    }
}

}  // namespace
