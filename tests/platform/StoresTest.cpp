// Stores in memory, files that hold certificates, and the named views of the system.

#include <mutex>

#include "platform/HostLog.h"
#include "tests/platform/DerPieces.h"
#include "tests/platform/StoreFixture.h"

namespace {

using namespace platform;
using namespace tests;
namespace fs = std::filesystem;

// --- Memory ---

class MemoryStore : public StoreFixture {
  protected:
    const CertStore store_ = CertOpenMemoryStore();
};

TEST_F(MemoryStore, DispositionsDecideBetweenTwoThatMatch) {
    const auto older = ContextOf(Make("x", 1'600'000'000, {7})), newer = ContextOf(Make("x", 1'700'000'000, {7}));
    const struct {
        CertificateContext first, second;
        std::uint32_t disposition;
        std::vector<CertificateContext> left;
        ErrorCode error = ERROR_SUCCESS;
    } cases[] = {
        {older, newer, CERT_STORE_ADD_NEW, {older}, CRYPT_E_EXISTS},
        {older, newer, CERT_STORE_ADD_NEWER, {newer}},
        {newer, older, CERT_STORE_ADD_NEWER, {newer}},
        {newer, newer, CERT_STORE_ADD_NEWER, {newer}},
        {newer, older, CERT_STORE_ADD_REPLACE_EXISTING, {older}},
        {newer, older, CERT_STORE_ADD_ALWAYS, {newer, older}},
        {newer, newer, CERT_STORE_ADD_ALWAYS, {newer}},
        {newer, older, 99, {newer}, ERROR_INVALID_PARAMETER},
    };
    for (const auto& [first, second, disposition, left, error] : cases) {
        const auto store = CertOpenMemoryStore();
        Add(store, first);
        EXPECT_FAILS(Add(store, second, disposition), error) << disposition;
        EXPECT_EQ(CertEnumCertificatesInStore(store), left);
    }
}

TEST_F(MemoryStore, KnowsItsCertificatesAlsoAfterOthersWentAway) {
    std::vector<CertificateContext> kept;
    for (const char* name : {"a", "b", "c", "d"}) {
        kept.push_back(ContextOf(Make(name, 1'600'000'000, {7})));
        Add(store_, kept.back());
    }
    for (const std::size_t place : {2U, 0U}) {
        EXPECT_TRUE(CertDeleteCertificateFromStore(store_, kept[place]));
        EXPECT_FAILS(CertDeleteCertificateFromStore(store_, kept[place]), CRYPT_E_NOT_FOUND);
        kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(place));
    }
    for (const auto& certificate : kept)
        EXPECT_TRUE(Add(store_, certificate, CERT_STORE_ADD_ALWAYS));
    EXPECT_EQ(CertEnumCertificatesInStore(store_), kept);
    const auto renewed = ContextOf(Make("b", 1'700'000'000, {7}));
    EXPECT_TRUE(Add(store_, renewed, CERT_STORE_ADD_NEWER));
    EXPECT_EQ(CertEnumCertificatesInStore(store_), (std::vector{renewed, kept[1]}));
}

TEST_F(MemoryStore, ReplacingTakesThePropertiesAlong) {
    const auto first = ContextOf(a_);
    CertSetCertificateContextProperty(first, CERT_FRIENDLY_NAME_PROP_ID, Bytes{1});
    for (const auto& [added, expected] : {std::pair(first, true), {ContextOf(a_), false}}) {
        Add(store_, added, CERT_STORE_ADD_REPLACE_EXISTING);
        const auto listed = CertEnumCertificatesInStore(store_).at(0);
        EXPECT_EQ(CertGetCertificateContextProperty(listed, CERT_FRIENDLY_NAME_PROP_ID).has_value(), expected);
    }
}

TEST_F(MemoryStore, AnswersLookupsAndTellsWhereAContextIsFrom) {
    for (const auto& certificate : {a_, b_})
        Add(store_, ContextOf(certificate));
    const auto found = ContextOf(b_);
    EXPECT_EQ(FindIn(store_, b_), found);
    EXPECT_EQ(FindIn(store_, b_).Store(), store_);
    EXPECT_EQ(CertFindByIssuerAndSerial(store_, found.Info().Issuer, found.Info().SerialNumber), found);
    EXPECT_EQ(CertFindBySubject(store_, found.Info().Subject), std::vector{found});
    EXPECT_FAILS(CertFindBySha1(store_, Bytes(20)), CRYPT_E_NOT_FOUND);
    EXPECT_FAILS(CertEnumCertificatesInStore({}), ERROR_INVALID_HANDLE);
    // A store that held a context pointing back to it would live for ever.
    std::weak_ptr<CertStore::Impl> watch;
    {
        const auto inner = CertOpenMemoryStore();
        Add(inner, found.FromStore(inner));
        watch = inner.Backend();
    }
    EXPECT_TRUE(watch.expired());
}

// --- Files ---

class FileStore : public StoreFixture {};

TEST_F(FileStore, ReadsEveryFormInWhichCertificatesAreHandedOut) {
    const std::string both = a_.Pem() + b_.Pem();
    std::string crlf, wide = "\xFF\xFE", scattered, bare = a_.Pem();
    for (const char c : both)
        crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    for (const char c : a_.Pem())
        wide += {c, '\0'};
    bare = bare.substr(bare.find('\n'), bare.rfind("-----END") - bare.find('\n'));
    for (std::size_t at = 0; at < bare.size(); ++at)
        scattered.append(at % 7 == 3 ? " \t" : "") += bare[at];
    const std::string begin = "-----BEGIN CERTIFICATE-----\n", end = "-----END CERTIFICATE-----\n";
    const std::tuple<const char*, std::string, Texts> cases[] = {
        {"DER", std::string(AsText(a_.Der())), {u"a"}},
        {"text around", "Bag Attributes\n  x\n" + a_.Pem() + "between -----\n" + b_.Pem() + "end", {u"a", u"b"}},
        {"CR LF", crlf, {u"a", u"b"}},
        {"byte order mark", "\xEF\xBB\xBF" + both, {u"a", u"b"}},
        {"UTF-16", wide, {u"a"}},
        {"bare Base64", bare, {u"a"}},
        {"blanks anywhere", scattered, {u"a"}},
        {"a character of no alphabet", begin + std::string(bare).replace(41, 1, "*") + end, {}},
        {"a private key among them", a_.KeyPem() + a_.Pem(), {u"a"}},
        {"twice the same", a_.Pem() + a_.Pem(), {u"a"}},
        {"a damaged one before", begin + "MIIB\n" + end + b_.Pem(), {u"b"}},
        {"one cut short before", begin + "MIIB\n" + b_.Pem(), {u"b"}},
    };
    for (const auto& [what, content, names] : cases)
        EXPECT_EQ(NamesIn(CertOpenFileStore(profile_.Write("file", content))), names) << what;
}

TEST_F(FileStore, ReadsBundlesMadeByOpenssl) {
    const auto bundle = profile_.Folder() / "bundle";
    for (const char* form : {"DER", "PEM"}) {
        Bundle(bundle, form);
        EXPECT_EQ(NamesIn(CertOpenFileStore(bundle)), (Texts{u"a", u"b"})) << form;
    }
    // The same in indefinite lengths: ContentInfo, SignedData and the certificates' set.
    Bytes ber = FromHex("308006092A864886F70D010702A08030800201013100308006092A864886F70D0107010000A080");
    ber.insert(ber.end(), a_.Der().begin(), a_.Der().end());
    ber.insert(ber.end(), {0x00, 0x00, 0x31, 0x00, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(NamesIn(CertOpenBytesStore(ber)), Texts{u"a"});
    for (std::size_t size = 1; size < ber.size(); ++size)
        ASSERT_FALSE(CertOpenBytesStore(ByteView(ber).first(size))) << size;
}

TEST_F(FileStore, WhatHoldsNoneFailsWithAReason) {
    const std::pair<fs::path, ErrorCode> cases[] = {
        {profile_.Folder() / "absent", ERROR_FILE_NOT_FOUND},
        {profile_.Folder(), ERROR_DIRECTORY},
        {profile_.Write("empty", ""), CRYPT_E_ASN1_EOD},
        {profile_.Write("text", "just text"), CRYPT_E_BAD_ENCODE},
        {profile_.Write("key", a_.KeyPem()), CRYPT_E_BAD_ENCODE},
    };
    for (const auto& [path, error] : cases)
        EXPECT_FAILS(CertOpenFileStore(path), error) << path;
}

// --- System stores ---

class SystemStore : public StoreFixture {};

TEST_F(SystemStore, JoinsUserAndMachineSortedByFileName) {
    Put("Some/2.pem", b_.Pem() + c_.Pem());
    Put("Some/1", AsText(a_.Der()));
    PutForAll("Some/0.der", AsText(c_.Der()));
    PutForAll("Some/x.pem", Make("d").Pem());
    EXPECT_EQ(NamesIn(CertOpenSystemStoreW(u"Some")), (Texts{u"a", u"b", u"c", u"d"}));
    EXPECT_EQ(NamesIn(CertOpenSystemStoreAt(StoreLocation::localMachine, u"Some", true)), (Texts{u"c", u"d"}));
    EXPECT_TRUE(NamesIn(CertOpenSystemStoreW(u"Unused")).empty());
    EXPECT_EQ(CertEnumSystemStore(), (Texts{u"CA", u"MY", u"ROOT", u"Some"}));
}

TEST_F(SystemStore, BrokenFilesHideNothingAndAreLogged) {
    const std::pair<const char*, std::string> files[] = {
        {"broken.cer", "\x30\x82\x05\x00 cut short"},
        {"empty.pem", ""},
        {"half.pem", "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n" + b_.Pem()},
        {"good.pem", a_.Pem()},
        {".hidden.pem", c_.Pem()}};
    for (const auto& [name, content] : files)
        Put(std::string("CA/") + name, content);
    fs::create_directory(profile_.Stores() / "CA/folder.pem");
    ASSERT_EQ(mkfifo((profile_.Stores() / "CA/pipe").c_str(), 0600), 0);
    fs::create_symlink("/nowhere", profile_.Stores() / "CA/dangling");
    static std::string logged;
    static std::mutex lock;
    SetHostLog([](std::string_view text) {
        const std::scoped_lock locked(lock);
        logged.append(text);
    });
    EXPECT_EQ(NamesIn(CertOpenSystemStoreW(u"CA")), (Texts{u"a", u"b"}));
    SetHostLog(nullptr);
    for (const char* name : {"broken.cer", "empty.pem", "half.pem"})
        EXPECT_NE(logged.find(name), std::string::npos) << logged;
}

TEST_F(SystemStore, OnlyNamesBelowTheFolderOpen) {
    using namespace std::string_literals;
    for (const std::u16string& name : {u""s, u".."s, u"."s, u"../MY"s, u"a/b"s, u"a\\b"s, u".hidden"s, u"a\0b"s})
        EXPECT_FAILS(CertOpenSystemStoreW(name), ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(CertOpenSystemStoreW(u"Мои сертификати"));
    Put("CA/a.pem", a_.Pem());
    EXPECT_EQ(NamesIn(CertOpenSystemStoreW(u"ca")), Texts{u"a"});
}

TEST_F(SystemStore, WithoutAHomeTheMachinesPartStaysAndAddingFails) {
    Profile profile;
    profile.Write("machine/stores/CA/a.pem", a_.Pem());
    for (const char* variable : {"HOME", "XDG_DATA_HOME"})
        profile.Set(variable, std::nullopt);
    const auto store = CertOpenSystemStoreW(u"CA");
    EXPECT_EQ(NamesIn(store), Texts{u"a"});
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(Add(store, ContextOf(b_)));
    EXPECT_NE(GetLastError(), ERROR_SUCCESS);
}

TEST_F(SystemStore, RootHoldsTheHostsTrustAnchorsButOnlyWhenAsked) {
    InstallCertificate(profile_, "ROOT", a_);
    EXPECT_EQ(NamesIn(UserStore(u"ROOT")), Texts{u"a"});
    const auto anchors = CertEnumCertificatesInStore(CertOpenHostStore(u"ROOT"));
    EXPECT_EQ(CertEnumCertificatesInStore(CertOpenSystemStoreW(u"ROOT")).size(), anchors.size() + 1);
    if (anchors.empty()) GTEST_SKIP() << "this host has no trust anchors";
    EXPECT_FALSE(CertFindBySubject(CertOpenSystemStoreW(u"ROOT"), anchors[0].Info().Subject).empty());
}

TEST_F(SystemStore, KeysAreBoundInMyAloneAndEachCertificateIsListedOnceWithItsKey) {
    for (const char* store : {"MY", "CA"})
        InstallCertificate(profile_, store, a_, true);
    EXPECT_TRUE(CryptAcquireCertificatePrivateKey(InMy(a_), CRYPT_ACQUIRE_COMPARE_KEY_FLAG));
    EXPECT_FALSE(CertHasPrivateKey(FindIn(UserStore(u"CA"), a_)));
    Put("MY/another name.pem", a_.Pem());
    PutForAll("MY/a.pem", a_.Pem());
    const auto expectOneWithKey = [] {
        const auto listed = CertOpenSystemStoreW(u"MY").Backend()->WithoutHostSources()->Certificates();
        ASSERT_EQ(listed.size(), 1U);
        EXPECT_TRUE(CertHasPrivateKey(listed[0]));
    };
    expectOneWithKey();
    fs::rename(KeyFile(a_), profile_.Machine() / "stores/MY" / KeyFile(a_).filename());
    EXPECT_FALSE(CertHasPrivateKey(InMy(a_)));
    expectOneWithKey();  // the machine's copy
}

// What is set or unlocked through one open store ends with it.
TEST_F(SystemStore, ContextsOfOneLookupDoNotShareTheirState) {
    InstallCertificate(profile_, "MY", a_, true);
    const auto first = InMy(a_), second = InMy(a_);
    CertSetCertificateContextProperty(first, CERT_FRIENDLY_NAME_PROP_ID, Bytes{1});
    EXPECT_EQ(first, second);
    EXPECT_FALSE(CertGetCertificateContextProperty(second, CERT_FRIENDLY_NAME_PROP_ID));
    EXPECT_NE(posix::AttachedKeyOf(first), posix::AttachedKeyOf(second));
}

}  // namespace
