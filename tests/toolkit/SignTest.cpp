// What a signature made here looks like, byte for byte, and what is left when it cannot be made.

#include <sys/resource.h>

#include <csignal>
#include <set>

#include "platform/Hash.h"
#include "tests/support/Corpora.h"
#include "tests/support/KeyUse.h"
#include "tests/support/SoftToken.h"
#include "tests/toolkit/SignFixture.h"
#include "toolkit/cms/SignatureAlgorithms.h"

namespace {

using namespace tests;
using testing::AllOf, testing::ElementsAre, testing::HasSubstr, testing::Not;

class SignTest : public SignFixture {
  protected:
    // All names below the profile's folder, so that nothing can be left behind unseen.
    [[nodiscard]] std::set<std::string> Everything() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(profile_.Folder()))
            names.insert(entry.path().string());
        return names;
    }
};

TEST_F(SignTest, FieldsAndAttributesStandInTheirOrder) {
    // The issuer, twice, is the certificate's and not looked into here.
    const std::string issuer = Shape(pki_.ca.SubjectDer()), serial = "int " + pki_.signer.SerialHex();
    const std::string sha256 = "S(2.16.840.1.101.3.4.2.1 tag 5 0)", data = "1.2.840.113549.1.7.1";
    const struct {
        SignOptions options;
        std::string hash, digest, signature;
    } cases[] = {{{}, sha256, "tag 4 32", "1.2.840.113549.1.1.11"},
                 {{.attached = false}, sha256, "tag 4 32", "1.2.840.113549.1.1.11"},
                 // SHA-1 names only the key, and the certificate is hashed with SHA-256 still.
                 {{.hash = "sha1"}, "S(1.3.14.3.2.26 tag 5 0)", "tag 4 20", "1.2.840.113549.1.1.1"}};
    for (const auto& [options, hash, digest, signature] : cases) {
        const std::string content = options.attached ? "S(" + data + " [0](tag 4 14))" : "S(" + data + ")";
        const std::string attributes = "S(1.2.840.113549.1.9.3 T(" + data + ")) S(1.2.840.113549.1.9.4 T(" + digest +
                                       ")) S(1.2.840.113549.1.9.5 T(tag 23 13)) S(1.2.840.113549.1.9.16.2.47 T(S(S(S(" +
                                       sha256 + " tag 4 32 S(S([4](" + issuer + ")) " + serial + "))))))";
        const auto message = Sign("Some content\r\n", options);
        EXPECT_EQ(Shape(platform::AsBytes(ReadFile(message))),
                  "S(1.2.840.113549.1.7.2 [0](S(int 01 T(" + hash + ") " + content +
                      " [0](cert cert cert) T(S(int 01 S(" + issuer + " " + serial + ") " + hash + " [0](" +
                      attributes + ") S(" + signature + " tag 5 0) tag 4 256)))))");
        EXPECT_THAT(Hex(ReadSigner(message).isSigned.Value("1.2.840.113549.1.9.16.2.47")),
                    HasSubstr(Hex(platform::Digest(platform::HashAlgorithm::sha256, pki_.signer.Der()))));
    }
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
    for (const auto& row : TestData("toolkit/attributes.tsv")) {
        const auto signer = ReadSigner(Sign("content", {.cades = row[1] == "yes", .attributes = row[0]}));
        std::string types;
        for (const std::string& type : signer.isSigned.Types())
            types += (types.empty() ? "" : " ") + type.substr(std::string("1.2.840.113549.1.9.").size());
        EXPECT_EQ(types, row[2]) << row[0];
        EXPECT_TRUE(signer.isUnsigned.encoded.empty());
    }
}

TEST_F(SignTest, ChainGoesFromTheRootToTheSigner) {
    const Bytes signer = pki_.signer.Der();
    EXPECT_THAT(ReadSigner(Sign("content")).certificates, ElementsAre(pki_.root.Der(), pki_.ca.Der(), signer));
    EXPECT_THAT(ReadSigner(Sign("content", {.chain = false})).certificates, ElementsAre(signer));

    const Certificate self = Issue({.subject = {{"CN", "Self"}}, .key = TestKey(KeyType::p256, 7)});
    InstallCertificate(profile_, "MY", self, true);
    ASSERT_TRUE(TrySign(Scratch("document.bin"), Scratch("self.p7m"), {}, self.Thumbprint())) << log_;
    EXPECT_THAT(ReadSigner(Scratch("self.p7m")).certificates, ElementsAre(self.Der()));
    // Without the issuing CA in a store the chain is as long as it can be.
    std::filesystem::remove_all(profile_.Stores() / "CA");
    EXPECT_THAT(ReadSigner(Sign("content")).certificates, ElementsAre(signer));
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
    EXPECT_THAT(log_,
                AllOf(HasSubstr("Certificate does not have the associated private key."), HasSubstr("CN=Без ключ")));
    EXPECT_FALSE(TrySign(input, Scratch("o"), {.hash = "md5"}));
    EXPECT_THAT(log_, HasSubstr("md5"));
    const struct {
        std::filesystem::path input, output;
        const char* reason;
    } cases[] = {{Scratch("missing"), Scratch("o"), "Failed to open the input file."},
                 {profile_.Folder(), Scratch("o"), ""},
                 {input, Scratch("no/such/folder/o"), "Failed to create the output file."},
                 {input, Scratch("taken"), ""}};
    for (const auto& [from, to, reason] : cases) {
        EXPECT_FALSE(TrySign(from, to)) << from << to;
        EXPECT_THAT(log_, HasSubstr(reason));
    }
    EXPECT_EQ(Everything(), before);
}

TEST_F(SignTest, FullDiskKeepsTheOldOutput) {
    const auto input = profile_.Write("big", std::string(3u << 20, 'x'));
    const auto output = profile_.Write("big.p7m", "the old one");
    const auto before = Everything();
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{2u << 20, old.rlim_max};
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
        EXPECT_EQ(Verdict("ours", file), "");
        EXPECT_NE(ReadFile(file).find(content), std::string::npos);
    }
}

// The outermost lengths grow by an octet when the message passes 2^24 bytes, and how long it becomes is known only
// when the content has been written already.
TEST_F(SignTest, LengthThatWasGuessedWrongIsMended) {
    constexpr std::size_t kEdge = std::size_t{1} << 24;
    const std::size_t around = std::filesystem::file_size(Sign(std::string(std::size_t{2} << 20, 'x'))) - (2u << 20);
    for (const std::size_t size : {kEdge - around - 400, kEdge - around, kEdge - 1, kEdge, kEdge + 1}) {
        const auto message = Sign(std::string(size - 1, 'y') + "z");
        const std::string shape = Shape(platform::AsBytes(ReadFile(message)));
        EXPECT_THAT(shape, HasSubstr("[0](tag 4 " + std::to_string(size) + ")"));
        EXPECT_THAT(shape, Not(HasSubstr("malformed"))) << size;
        EXPECT_EQ(Verdict("ours", message), "") << size;
    }
}

// A key that stays on a token.
class SignTokenTest : public SignFixture {
  protected:
    void SetUp() override {
        if (!SoftToken::Available()) GTEST_SKIP() << "SoftHSM2 or pkcs11-tool is not installed";
        // The certificate lies on the token and, as a copy for others to find, in a folder without the key.
        std::filesystem::remove_all(profile_.Stores() / "MY");
        InstallCertificate(profile_, "ADDRESSBOOK", pki_.signer);
        token_.emplace(profile_);
        token_->Put(pki_.signer, "01");
        input_ = profile_.Write("document.bin", "content");
    }
    std::optional<SoftToken> token_;
    std::filesystem::path input_;
};

TEST_F(SignTokenTest, SignatureIsMadeOnTheToken) {
    const ScriptedPins user({token_->Pin()});
    ASSERT_TRUE(TrySign(input_, Scratch("o"))) << log_;
    EXPECT_THAT(log_, HasSubstr("The private key is not exportable, will use MS CNG..."));
    EXPECT_EQ(user.asked.size(), 1U);
    EXPECT_EQ(Verdict("ours", Scratch("o")), "");
}

TEST_F(SignTokenTest, PinThatIsWrongOrRefusedLeavesNoFileAndNoTraceOfIt) {
    for (const auto& text : {std::optional<std::string>("135791"), std::optional<std::string>()}) {
        const ScriptedPins user({text});
        EXPECT_FALSE(TrySign(input_, Scratch("o")));
        EXPECT_THAT(log_, AllOf(HasSubstr("Failed to RSA sign digest of authenticated attributes using CNG."),
                                HasSubstr(text ? "0x8010006b" : "0x8010006e"), Not(HasSubstr("135791"))));
        EXPECT_EQ(user.asked.size(), 1U);
        EXPECT_FALSE(std::filesystem::exists(Scratch("o")));
    }
}

}  // namespace
