#include "platform/Stores.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <thread>

#include "platform/Files.h"
#include "platform/HostLog.h"
#include "platform/Keys.h"
#include "platform/posix/FolderContent.h"
#include "platform/posix/Native.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"

namespace {

using namespace platform;
namespace fs = std::filesystem;
using tests::Certificate;
using tests::KeyType;
using tests::Profile;

CertificateContext ContextOf(const Certificate& certificate) {
    return CertCreateCertificateContext(certificate.Der());
}

Certificate Make(const std::string& name, std::int64_t notBefore = 1'700'000'000, Bytes serial = {}) {
    return tests::Issue({.subject = {{"CN", name}},
                         .serial = std::move(serial),
                         .notBefore = notBefore,
                         .key = tests::TestKey(KeyType::p256)});
}

std::vector<std::u16string> NamesIn(const CertStore& store) {
    std::vector<std::u16string> names;
    for (const auto& certificate : CertEnumCertificatesInStore(store))
        names.push_back(CertGetNameStringW(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0));
    return names;
}
using Texts = std::vector<std::u16string>;

Bytes Sha1(const Certificate& certificate) {
    return posix::Sha1Of(ContextOf(certificate));
}

std::string_view Text(ByteView bytes) {
    return AsText(bytes);
}

// The user's folder of a store alone: no tokens of this machine, no trust anchors.
CertStore UserStore(std::u16string_view name) {
    return CertOpenSystemStoreAt(StoreLocation::currentUser, name, false);
}

std::string logged;
std::mutex loggedLock;
void KeepLog(std::string_view text) {
    const std::scoped_lock lock(loggedLock);
    logged += std::string(text) + "\n";
}

// --- Memory ---

TEST(MemoryStore, DispositionsDecideBetweenTwoThatMatch) {
    const Bytes serial{7};
    const auto older = ContextOf(Make("x", 1'600'000'000, serial)), newer = ContextOf(Make("x", 1'700'000'000, serial));
    const auto add = [&](const CertificateContext& first, const CertificateContext& second, std::uint32_t disposition) {
        const auto store = CertOpenMemoryStore();
        CertAddCertificateContextToStore(store, first, CERT_STORE_ADD_NEW);
        SetLastError(0);
        const bool added = CertAddCertificateContextToStore(store, second, disposition);
        return std::pair(added, CertEnumCertificatesInStore(store));
    };
    EXPECT_EQ(add(older, newer, CERT_STORE_ADD_NEW), std::pair(false, std::vector{older}));
    EXPECT_EQ(GetLastError(), CRYPT_E_EXISTS);
    EXPECT_EQ(add(older, newer, CERT_STORE_ADD_NEWER), std::pair(true, std::vector{newer}));
    EXPECT_EQ(add(newer, older, CERT_STORE_ADD_NEWER), std::pair(true, std::vector{newer}));
    EXPECT_EQ(add(newer, newer, CERT_STORE_ADD_NEWER), std::pair(true, std::vector{newer}));
    EXPECT_EQ(add(newer, older, CERT_STORE_ADD_REPLACE_EXISTING), std::pair(true, std::vector{older}));
    EXPECT_EQ(add(newer, older, CERT_STORE_ADD_ALWAYS), std::pair(true, std::vector{newer, older}));
    EXPECT_EQ(add(newer, newer, CERT_STORE_ADD_ALWAYS), std::pair(true, std::vector{newer}));
    EXPECT_FALSE(add(newer, older, 99).first);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(MemoryStore, KnowsItsCertificatesAlsoAfterOthersWentAway) {
    const Bytes serial{7};
    const auto store = CertOpenMemoryStore();
    std::vector<CertificateContext> kept;
    for (const char* name : {"a", "b", "c", "d"}) {
        kept.push_back(ContextOf(Make(name, 1'600'000'000, serial)));
        CertAddCertificateContextToStore(store, kept.back(), CERT_STORE_ADD_NEW);
    }
    for (const std::size_t place : {2U, 0U}) {
        EXPECT_TRUE(CertDeleteCertificateFromStore(store, kept[place]));
        kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(place));
    }
    for (const auto& certificate : kept) {
        for (const auto disposition : {CERT_STORE_ADD_NEWER, CERT_STORE_ADD_ALWAYS})
            EXPECT_TRUE(CertAddCertificateContextToStore(store, certificate, disposition));
    }
    EXPECT_EQ(CertEnumCertificatesInStore(store), kept);
    const auto renewed = ContextOf(Make("b", 1'700'000'000, serial));
    EXPECT_TRUE(CertAddCertificateContextToStore(store, renewed, CERT_STORE_ADD_NEWER));
    EXPECT_EQ(CertEnumCertificatesInStore(store), (std::vector{renewed, kept[1]}));
}

TEST(MemoryStore, ReplacingTakesThePropertiesAlong) {
    const auto der = Make("x").Der();
    const auto first = CertCreateCertificateContext(der), second = CertCreateCertificateContext(der);
    CertSetCertificateContextProperty(first, CERT_FRIENDLY_NAME_PROP_ID, Bytes{1});
    const auto store = CertOpenMemoryStore();
    CertAddCertificateContextToStore(store, first, CERT_STORE_ADD_NEW);
    const auto property = [&] {
        return CertGetCertificateContextProperty(CertEnumCertificatesInStore(store).at(0), CERT_FRIENDLY_NAME_PROP_ID);
    };
    EXPECT_TRUE(property());
    CertAddCertificateContextToStore(store, second, CERT_STORE_ADD_REPLACE_EXISTING);
    EXPECT_FALSE(property());
}

TEST(MemoryStore, AnswersLookupsAndTellsWhereAContextIsFrom) {
    const auto a = Make("a"), b = Make("b");
    const auto store = CertOpenMemoryStore();
    for (const auto& certificate : {a, b})
        CertAddCertificateContextToStore(store, ContextOf(certificate), CERT_STORE_ADD_NEW);
    EXPECT_EQ(CertFindBySha1(store, Sha1(b)), ContextOf(b));
    EXPECT_EQ(CertFindBySha1(store, Sha1(b)).Store(), store);
    const auto found = ContextOf(b);
    EXPECT_EQ(CertFindByIssuerAndSerial(store, found.Info().Issuer, found.Info().SerialNumber), found);
    EXPECT_EQ(CertFindBySubject(store, found.Info().Subject), std::vector{found});
    EXPECT_FALSE(CertFindBySha1(store, Bytes(20)));
    EXPECT_EQ(GetLastError(), CRYPT_E_NOT_FOUND);
    EXPECT_TRUE(CertDeleteCertificateFromStore(store, ContextOf(a)));
    EXPECT_FALSE(CertDeleteCertificateFromStore(store, ContextOf(a)));
    EXPECT_EQ(GetLastError(), CRYPT_E_NOT_FOUND);
    EXPECT_EQ(NamesIn(store), Texts{u"b"});
    EXPECT_TRUE(CertEnumCertificatesInStore({}).empty());
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    // A store that held a context pointing back to it would live for ever.
    std::weak_ptr<CertStore::Impl> watch;
    {
        const auto inner = CertOpenMemoryStore();
        CertAddCertificateContextToStore(inner, found.FromStore(inner), CERT_STORE_ADD_NEW);
        watch = inner.Backend();
    }
    EXPECT_TRUE(watch.expired());
}

// --- Files ---

TEST(FileStore, ReadsEveryFormInWhichCertificatesAreHandedOut) {
    const Profile profile;
    const auto a = Make("a"), b = Make("b");
    const std::string both = a.Pem() + b.Pem();
    std::string crlf = both;
    for (std::size_t at = 0; (at = crlf.find('\n', at)) != std::string::npos; at += 2)
        crlf.replace(at, 1, "\r\n");
    std::string wide = "\xFF\xFE";
    for (const char c : a.Pem())
        wide += {c, '\0'};
    std::string bare = a.Pem();
    bare = bare.substr(bare.find('\n'), bare.rfind("-----END") - bare.find('\n'));
    std::string scattered = bare;
    for (std::size_t at = 3; at < scattered.size(); at += 7)
        scattered.insert(at, 1, at % 2 == 0 ? ' ' : '\t');
    const struct {
        const char* what;
        std::string content;
        Texts names;
    } cases[] = {
        {"DER", std::string(Text(a.Der())), {u"a"}},
        {"PEM", a.Pem(), {u"a"}},
        {"several with text around",
         "Bag Attributes\n  x\n" + a.Pem() + "between -----\n" + b.Pem() + "end",
         {u"a", u"b"}},
        {"CR LF", crlf, {u"a", u"b"}},
        {"byte order mark", "\xEF\xBB\xBF" + both, {u"a", u"b"}},
        {"UTF-16", wide, {u"a"}},
        {"bare Base64", bare, {u"a"}},
        {"blanks anywhere", scattered, {u"a"}},
        {"a character of no alphabet",
         "-----BEGIN CERTIFICATE-----" + bare.replace(41, 1, "*") + "-----END CERTIFICATE-----",
         {}},
        {"a private key among them", a.KeyPem() + a.Pem(), {u"a"}},
        {"twice the same", a.Pem() + a.Pem(), {u"a"}},
        {"a damaged one before", "-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE-----\n" + b.Pem(), {u"b"}},
        {"one cut short before", "-----BEGIN CERTIFICATE-----\nMIIB\n" + b.Pem(), {u"b"}},
    };
    for (const auto& [what, content, names] : cases)
        EXPECT_EQ(NamesIn(CertOpenFileStore(profile.Write("file", content))), names) << what;
}

TEST(FileStore, ReadsBundlesMadeByOpenssl) {
    const Profile profile;
    const auto pem = profile.Write("both.pem", Make("a").Pem() + Make("b").Pem());
    for (const char* form : {"DER", "PEM"}) {
        const auto bundle = profile.Folder() / "bundle";
        const auto result = tests::RunProgram(
            {"openssl", "crl2pkcs7", "-nocrl", "-certfile", pem.string(), "-outform", form, "-out", bundle.string()});
        ASSERT_EQ(result.status, 0) << result.Summary();
        EXPECT_EQ(NamesIn(CertOpenFileStore(bundle)), (Texts{u"a", u"b"})) << form;
    }
    // The same in indefinite lengths: ContentInfo, SignedData and the certificates' set.
    const auto der = Make("a").Der();
    Bytes ber{0x30, 0x80, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02,
              0xA0, 0x80, 0x30, 0x80, 0x02, 0x01, 0x01, 0x31, 0x00, 0x30, 0x80, 0x06, 0x09,
              0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x01, 0x00, 0x00, 0xA0, 0x80};
    ber.insert(ber.end(), der.begin(), der.end());
    ber.insert(ber.end(), {0x00, 0x00, 0x31, 0x00, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(NamesIn(CertOpenBytesStore(ber)), Texts{u"a"});
    for (std::size_t size = 1; size < ber.size(); ++size)
        ASSERT_FALSE(CertOpenBytesStore(ByteView(ber).first(size))) << size;
}

TEST(FileStore, WhatHoldsNoneFailsWithAReason) {
    const Profile profile;
    const struct {
        fs::path path;
        ErrorCode error;
    } cases[] = {
        {profile.Folder() / "absent", ERROR_FILE_NOT_FOUND},
        {profile.Folder(), ERROR_DIRECTORY},
        {profile.Write("empty", ""), CRYPT_E_ASN1_EOD},
        {profile.Write("text", "just text"), CRYPT_E_BAD_ENCODE},
        {profile.Write("key", Make("a").KeyPem()), CRYPT_E_BAD_ENCODE},
    };
    for (const auto& [path, error] : cases) {
        SetLastError(0);
        EXPECT_FALSE(CertOpenFileStore(path)) << path;
        EXPECT_EQ(GetLastError(), error) << path;
    }
}

// --- System stores ---

TEST(SystemStore, JoinsUserAndMachineSortedByFileName) {
    const Profile profile;
    const auto a = Make("a"), b = Make("b"), c = Make("c");
    profile.Write("data/norvik/stores/Some/2.pem", b.Pem() + c.Pem());
    profile.Write("data/norvik/stores/Some/1", Text(a.Der()));
    profile.Write("machine/stores/Some/0.der", Text(c.Der()));
    profile.Write("machine/stores/Some/x.pem", Make("d").Pem());
    EXPECT_EQ(NamesIn(CertOpenSystemStoreW(u"Some")), (Texts{u"a", u"b", u"c", u"d"}));
    EXPECT_EQ(NamesIn(CertOpenSystemStoreAt(StoreLocation::localMachine, u"Some", true)), (Texts{u"c", u"d"}));
    EXPECT_TRUE(NamesIn(CertOpenSystemStoreW(u"Unused")).empty());
    EXPECT_EQ(CertEnumSystemStore(), (Texts{u"CA", u"MY", u"ROOT", u"Some"}));
}

TEST(SystemStore, BrokenFilesHideNothingAndAreLogged) {
    const Profile profile;
    const std::string folder = "data/norvik/stores/CA/";
    profile.Write(folder + "broken.cer", "\x30\x82\x05\x00 cut short");
    profile.Write(folder + "empty.pem", "");
    profile.Write(folder + "good.pem", Make("good").Pem());
    profile.Write(folder + "half.pem",
                  "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n" + Make("z").Pem());
    profile.Write(folder + ".hidden.pem", Make("hidden").Pem());
    fs::create_directory(profile.Stores() / "CA/folder.pem");
    ASSERT_EQ(mkfifo((profile.Stores() / "CA/pipe").c_str(), 0600), 0);
    fs::create_symlink("/nowhere", profile.Stores() / "CA/dangling");
    logged.clear();
    SetHostLog(KeepLog);
    EXPECT_EQ(NamesIn(CertOpenSystemStoreW(u"CA")), (Texts{u"good", u"z"}));
    SetHostLog(nullptr);
    for (const char* name : {"broken.cer", "empty.pem", "half.pem"})
        EXPECT_NE(logged.find(name), std::string::npos) << logged;
}

TEST(SystemStore, OnlyNamesBelowTheFolderOpen) {
    const Profile profile;
    for (const std::u16string& name :
         {std::u16string(), std::u16string(u".."), std::u16string(u"."), std::u16string(u"../MY"),
          std::u16string(u"a/b"), std::u16string(u"a\\b"), std::u16string(u".hidden"), std::u16string(u"a\0b", 3)}) {
        SetLastError(0);
        EXPECT_FALSE(CertOpenSystemStoreW(name));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
    EXPECT_TRUE(CertOpenSystemStoreW(u"Мои сертификати"));
    profile.Write("data/norvik/stores/CA/a.pem", Make("a").Pem());
    EXPECT_EQ(NamesIn(CertOpenSystemStoreW(u"ca")), Texts{u"a"});
}

TEST(SystemStore, WithoutAHomeTheMachinesPartStaysAndAddingFails) {
    Profile profile;
    profile.Write("machine/stores/CA/a.pem", Make("a").Pem());
    for (const char* variable : {"HOME", "XDG_DATA_HOME"})
        profile.Set(variable, std::nullopt);
    const auto store = CertOpenSystemStoreW(u"CA");
    EXPECT_EQ(NamesIn(store), Texts{u"a"});
    SetLastError(0);
    EXPECT_FALSE(CertAddCertificateContextToStore(store, ContextOf(Make("b")), CERT_STORE_ADD_NEW));
    EXPECT_NE(GetLastError(), ERROR_SUCCESS);
}

TEST(SystemStore, RootHoldsTheHostsTrustAnchorsButOnlyWhenAsked) {
    const Profile profile;
    tests::InstallCertificate(profile, "ROOT", Make("own root"));
    EXPECT_EQ(NamesIn(UserStore(u"ROOT")), Texts{u"own root"});
    const auto anchors = CertEnumCertificatesInStore(CertOpenHostStore(u"ROOT"));
    EXPECT_EQ(CertEnumCertificatesInStore(CertOpenSystemStoreW(u"ROOT")).size(), anchors.size() + 1);
    if (anchors.empty()) GTEST_SKIP() << "this host has no trust anchors";
    const auto& subject = anchors[0].Info().Subject;
    EXPECT_FALSE(CertFindBySubject(CertOpenSystemStoreW(u"ROOT"), subject).empty());
    EXPECT_TRUE(CertFindBySubject(UserStore(u"ROOT"), subject).empty());
}

TEST(SystemStore, KeysAreBoundInMyAlone) {
    const Profile profile;
    const auto certificate = Make("signer");
    for (const char* store : {"MY", "CA"})
        tests::InstallCertificate(profile, store, certificate, true);
    const auto mine = CertFindBySha1(UserStore(u"MY"), Sha1(certificate));
    EXPECT_TRUE(CertHasPrivateKey(mine));
    EXPECT_TRUE(CryptAcquireCertificatePrivateKey(mine, CRYPT_ACQUIRE_COMPARE_KEY_FLAG));
    EXPECT_FALSE(CertHasPrivateKey(CertFindBySha1(UserStore(u"CA"), Sha1(certificate))));
    // Once, and with its key, though the folder and the machine list it without.
    profile.Write("data/norvik/stores/MY/another name.pem", certificate.Pem());
    profile.Write("machine/stores/MY/a.pem", certificate.Pem());
    const auto listed = CertEnumCertificatesInStore(CertOpenSystemStoreAt(StoreLocation::currentUser, u"MY", false));
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_TRUE(CertHasPrivateKey(listed[0]));
    fs::remove(profile.Stores() / "MY" / (certificate.Thumbprint() + ".key"));
    EXPECT_FALSE(CertHasPrivateKey(CertFindBySha1(UserStore(u"MY"), Sha1(certificate))));
}

TEST(SystemStore, TheOneWithAKeyIsPreferred) {
    const Profile profile;
    const auto certificate = Make("signer");
    profile.Write("data/norvik/stores/MY/a.pem", certificate.Pem());
    profile.Write("machine/stores/MY/a.pem", certificate.Pem());
    profile.Write("machine/stores/MY/" + certificate.Thumbprint() + ".key", certificate.KeyPem());
    const auto store = CertOpenSystemStoreW(u"MY").Backend()->WithoutHostSources();
    const auto listed = store->Certificates();
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_TRUE(CertHasPrivateKey(listed[0]));
    EXPECT_TRUE(CertHasPrivateKey(store->FindBySha1(Sha1(certificate))));
}

// What is set or unlocked through one open store ends with it.
TEST(SystemStore, ContextsOfOneLookupDoNotShareTheirState) {
    const Profile profile;
    const auto certificate = Make("signer");
    tests::InstallCertificate(profile, "MY", certificate, true);
    const auto first = CertFindBySha1(UserStore(u"MY"), Sha1(certificate));
    CertSetCertificateContextProperty(first, CERT_FRIENDLY_NAME_PROP_ID, Bytes{1});
    const auto second = CertFindBySha1(UserStore(u"MY"), Sha1(certificate));
    EXPECT_EQ(first, second);
    EXPECT_FALSE(CertGetCertificateContextProperty(second, CERT_FRIENDLY_NAME_PROP_ID));
    EXPECT_NE(posix::AttachedKeyOf(first), posix::AttachedKeyOf(second));
}

// --- Changes from outside ---

TEST(FolderStore, EveryChangeIsSeenByTheNextOperation) {
    const Profile profile;
    const auto a = Make("a"), b = Make("b"), c = Make("c");
    const auto store = UserStore(u"CA");
    EXPECT_TRUE(NamesIn(store).empty());
    const auto file = profile.Write("data/norvik/stores/CA/1.pem", a.Pem());
    for (int round = 0; round < 2; ++round) {  // at once, and when the look before is long past
        EXPECT_EQ(NamesIn(store), Texts{u"a"});
        EXPECT_TRUE(CertFindBySha1(store, Sha1(a)));
        profile.Write("data/norvik/stores/CA/1.pem", b.Pem());  // in place
        EXPECT_FALSE(CertFindBySha1(store, Sha1(a)));
        EXPECT_EQ(NamesIn(store), Texts{u"b"});
        profile.Write("data/norvik/stores/CA/0.pem", c.Pem());
        EXPECT_TRUE(CertFindBySha1(store, Sha1(c)));
        EXPECT_EQ(NamesIn(store), (Texts{u"c", u"b"}));
        fs::remove(profile.Stores() / "CA/0.pem");
        EXPECT_EQ(NamesIn(store), Texts{u"b"});
        EXPECT_TRUE(CertFindBySubject(store, ContextOf(c).Info().Subject).empty());
        profile.Write("data/norvik/stores/CA/1.pem", a.Pem());
        std::this_thread::sleep_for(std::chrono::milliseconds(round == 0 ? 250 : 0));
    }
    fs::remove_all(profile.Stores() / "CA");
    EXPECT_TRUE(NamesIn(store).empty());
}

// Many times written within one tick of the file system's clock, always with the same size.
TEST(FolderStore, ContentOfTheSameSizeInTheSameInstantIsSeen) {
    const Profile profile;
    const Certificate versions[] = {Make("one", 1'700'000'000, Bytes(8, 1)), Make("two", 1'700'000'000, Bytes(8, 2))};
    const auto store = UserStore(u"CA");
    for (int i = 0; i < 200; ++i) {
        const Certificate& now = versions[i % 2];
        std::string pem = now.Pem();
        pem.resize(1024, '\n');
        profile.Write("data/norvik/stores/CA/1.pem", pem);
        ASSERT_EQ(NamesIn(store), Texts{i % 2 == 0 ? u"one" : u"two"}) << i;
    }
}

TEST(FolderStore, AnUnchangedFolderIsNotDecodedAgain) {
    const Profile profile;
    tests::InstallCertificate(profile, "CA", Make("a"));
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    const auto decoded = [] { return CertEnumCertificatesInStore(UserStore(u"CA")).at(0).Backend()->decoded; };
    const auto first = decoded();
    EXPECT_EQ(decoded(), first);
    profile.Write("data/norvik/stores/CA/other.pem", Make("b").Pem());
    const auto listed = CertEnumCertificatesInStore(UserStore(u"CA"));
    EXPECT_EQ(listed.size(), 2U);
    EXPECT_EQ(decoded(), first) << "a file that did not change was decoded again";
}

TEST(FolderStore, SeveralThreadsMayReadWhileFilesChange) {
    const Profile profile;
    const auto stays = Make("stays");
    tests::InstallCertificate(profile, "CA", stays);
    std::atomic<bool> stop = false;
    std::atomic<int> misses = 0;
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&] {
            while (!stop) {
                if (!CertFindBySha1(UserStore(u"CA"), Sha1(stays))) ++misses;
                if (CertEnumCertificatesInStore(UserStore(u"CA")).empty()) ++misses;
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        const auto store = UserStore(u"CA");
        const auto passing = ContextOf(Make("passing"));
        EXPECT_TRUE(CertAddCertificateContextToStore(store, passing, CERT_STORE_ADD_NEW));
        EXPECT_TRUE(CertDeleteCertificateFromStore(store, passing));
    }
    stop = true;
    for (auto& reader : readers)
        reader.join();
    EXPECT_EQ(misses, 0);
}

TEST(FolderStore, TwoThousandCertificatesAreListedQuickly) {
    const Profile profile;
    const Bytes number(8, 1), der = Make("one of many", 1'700'000'000, number).Der();
    const auto serial = std::search(der.begin(), der.end(), number.begin(), number.end()) - der.begin();
    Bytes each = der;
    for (int i = 0; i < 2000; ++i) {
        each[static_cast<std::size_t>(serial) + 6] = static_cast<std::uint8_t>(i >> 8);
        each[static_cast<std::size_t>(serial) + 7] = static_cast<std::uint8_t>(i);
        profile.Write("data/norvik/stores/ADDRESSBOOK/" + std::to_string(i) + ".cer", Text(each));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    const auto list = [&](const char* what) {
        const auto start = std::chrono::steady_clock::now();
        const auto count = CertEnumCertificatesInStore(UserStore(u"ADDRESSBOOK")).size();
        const auto took =
            std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
        std::cout << what << ": " << took.count() << " us\n";
        EXPECT_EQ(count, 2000U);
    };
    list("first listing");
    list("second listing");
    const auto start = std::chrono::steady_clock::now();
    constexpr int kFinds = 1000;
    const Bytes sha1 = posix::Sha1Of(CertCreateCertificateContext(each));
    for (int i = 0; i < kFinds; ++i)
        ASSERT_TRUE(CertFindBySha1(UserStore(u"ADDRESSBOOK"), sha1));
    const auto took = std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - start);
    std::cout << "open and find one of 2,000: " << took.count() / kFinds << " ns\n";
    EXPECT_LT(took / kFinds, std::chrono::milliseconds(5)) << "the folder was decoded again";
}

// --- Adding and removing ---

mode_t ModeOf(const fs::path& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

CertificateContext WithKey(const Certificate& certificate) {
    EVP_PKEY_up_ref(certificate.PrivateKey().get());
    return posix::WithOwnState(ContextOf(certificate),
                               posix::MakeMemoryKey(posix::EvpKeyPtr(certificate.PrivateKey().get())));
}

TEST(FolderStore, AddingWritesTheCertificateAndItsKeyForTheOwnerAlone) {
    const Profile profile;
    const auto certificate = Make("signer");
    ASSERT_TRUE(
        CertAddCertificateContextToStore(CertOpenSystemStoreW(u"MY"), WithKey(certificate), CERT_STORE_ADD_NEW));
    const auto folder = profile.Stores() / "MY";
    EXPECT_EQ(ModeOf(folder), 0700U);
    EXPECT_EQ(ModeOf(folder / (certificate.Thumbprint() + ".key")), 0600U);
    EXPECT_EQ(tests::ReadFile(folder / (certificate.Thumbprint() + ".cer")), Text(certificate.Der()));
    const auto found = CertFindBySha1(UserStore(u"MY"), Sha1(certificate));
    EXPECT_TRUE(CryptAcquireCertificatePrivateKey(found, CRYPT_ACQUIRE_COMPARE_KEY_FLAG));
    // In another store no key is written.
    ASSERT_TRUE(CertAddCertificateContextToStore(UserStore(u"CA"), WithKey(certificate), CERT_STORE_ADD_NEW));
    EXPECT_FALSE(fs::exists(profile.Stores() / "CA" / (certificate.Thumbprint() + ".key")));
}

TEST(FolderStore, DispositionsHoldAndNoKeyIsLost) {
    const Profile profile;
    const Bytes serial{9};
    const auto older = Make("x", 1'600'000'000, serial), newer = Make("x", 1'700'000'000, serial);
    const auto store = UserStore(u"MY");
    const auto key = [&](const Certificate& certificate) {
        return fs::exists(profile.Stores() / "MY" / (certificate.Thumbprint() + ".key"));
    };
    const auto listed = [&] { return CertEnumCertificatesInStore(store); };
    ASSERT_TRUE(CertAddCertificateContextToStore(store, WithKey(older), CERT_STORE_ADD_NEW));
    EXPECT_FALSE(CertAddCertificateContextToStore(store, ContextOf(newer), CERT_STORE_ADD_NEW));
    EXPECT_EQ(GetLastError(), CRYPT_E_EXISTS);
    // The same certificate without its key, as somebody sends it: the key that is here stays.
    EXPECT_TRUE(CertAddCertificateContextToStore(store, ContextOf(older), CERT_STORE_ADD_REPLACE_EXISTING));
    EXPECT_TRUE(key(older));
    // A newer encoding with the same public key: the key goes over to it.
    EXPECT_TRUE(CertAddCertificateContextToStore(store, ContextOf(newer), CERT_STORE_ADD_NEWER));
    EXPECT_EQ(listed(), std::vector{ContextOf(newer)});
    EXPECT_TRUE(key(newer));
    EXPECT_TRUE(CertHasPrivateKey(listed().at(0)));
    EXPECT_TRUE(CertAddCertificateContextToStore(store, ContextOf(older), CERT_STORE_ADD_NEWER));
    EXPECT_EQ(listed(), std::vector{ContextOf(newer)});
    // A forged one with the same issuer and serial number cannot take the key away.
    const auto forged = tests::Issue({.subject = {{"CN", "x"}},
                                      .serial = serial,
                                      .notBefore = 1'800'000'000,
                                      .key = tests::TestKey(KeyType::p256, 1)});
    EXPECT_TRUE(CertAddCertificateContextToStore(store, ContextOf(forged), CERT_STORE_ADD_REPLACE_EXISTING));
    EXPECT_EQ(listed(), std::vector{ContextOf(forged)});
    EXPECT_FALSE(CertHasPrivateKey(listed().at(0)));
    EXPECT_TRUE(key(newer));
}

TEST(FolderStore, AKeyWithAPassphraseIsNotReplacedByAPlainOne) {
    const Profile profile;
    const auto certificate = Make("signer");
    ASSERT_TRUE(ImportPrivateKey(ContextOf(certificate), Secret(certificate.Pkcs8()), Secret("тайна")));
    const auto file = profile.Stores() / "MY" / (certificate.Thumbprint() + ".key");
    const std::string encrypted = tests::ReadFile(file);
    ASSERT_NE(encrypted.find("ENCRYPTED"), std::string::npos);
    EXPECT_TRUE(
        CertAddCertificateContextToStore(UserStore(u"MY"), WithKey(certificate), CERT_STORE_ADD_REPLACE_EXISTING));
    EXPECT_EQ(tests::ReadFile(file), encrypted);
}

TEST(FolderStore, RemovingTakesTheKeyAndLeavesTheNeighbours) {
    const Profile profile;
    const auto a = Make("a"), b = Make("b");
    tests::InstallCertificate(profile, "MY", a, true);
    const auto bundle = profile.Write("data/norvik/stores/MY/bundle.pem",
                                      "my notes\n" + a.Pem() + "more notes\n" + b.Pem() + b.KeyPem());
    fs::permissions(bundle, fs::perms::owner_read | fs::perms::owner_write);
    const auto store = UserStore(u"MY");
    EXPECT_TRUE(CertDeleteCertificateFromStore(store, ContextOf(a)));
    EXPECT_EQ(NamesIn(store), Texts{u"b"});
    EXPECT_FALSE(fs::exists(profile.Stores() / "MY" / (a.Thumbprint() + ".key")));
    EXPECT_EQ(tests::ReadFile(bundle), "my notes\nmore notes\n" + b.Pem() + b.KeyPem());
    EXPECT_EQ(ModeOf(bundle), 0600U);
    EXPECT_TRUE(CertDeleteCertificateFromStore(store, ContextOf(b)));
    EXPECT_EQ(tests::ReadFile(bundle), "my notes\nmore notes\n" + b.KeyPem()) << "a private key was lost";
    EXPECT_FALSE(CertDeleteCertificateFromStore(store, ContextOf(b)));
    EXPECT_EQ(GetLastError(), CRYPT_E_NOT_FOUND);
}

TEST(FolderStore, OneIsTakenOutOfABinaryBundle) {
    const Profile profile;
    const auto a = Make("a"), b = Make("b");
    const auto pem = profile.Write("both.pem", a.Pem() + b.Pem());
    fs::create_directories(profile.Stores() / "CA");
    const auto bundle = profile.Stores() / "CA/bundle.p7b";
    ASSERT_EQ(tests::RunProgram({"openssl", "crl2pkcs7", "-nocrl", "-certfile", pem.string(), "-outform", "DER", "-out",
                                 bundle.string()})
                  .status,
              0);
    EXPECT_TRUE(CertDeleteCertificateFromStore(UserStore(u"CA"), ContextOf(a)));
    EXPECT_EQ(NamesIn(UserStore(u"CA")), Texts{u"b"});
    EXPECT_TRUE(CertDeleteCertificateFromStore(UserStore(u"CA"), ContextOf(b)));
    EXPECT_FALSE(fs::exists(bundle));
}

TEST(FolderStore, WhatLiesElsewhereIsNotRemoved) {
    const Profile profile;
    const auto certificate = Make("machine's");
    profile.Write("machine/stores/CA/a.pem", certificate.Pem());
    EXPECT_FALSE(CertDeleteCertificateFromStore(CertOpenSystemStoreW(u"CA"), ContextOf(certificate)));
    EXPECT_EQ(GetLastError(), CRYPT_E_NOT_FOUND);
    EXPECT_TRUE(CertDeleteCertificateFromStore(CertOpenSystemStoreAt(StoreLocation::localMachine, u"CA", false),
                                               ContextOf(certificate)));
}

TEST(FolderStore, CrlsAreListedAndAddedOnce) {
    const Profile profile;
    const auto ca = tests::Issue({.subject = {{"CN", "CA"}}, .key = tests::TestKey(KeyType::p256), .ca = true});
    const Bytes der = tests::MakeCrl(ca), other = tests::MakeCrl(ca, {.number = 2});
    const auto crl = CertCreateCRLContext(der);
    ASSERT_TRUE(crl);
    EXPECT_EQ(CopyOf(crl.Issuer()), ca.SubjectDer());
    ASSERT_NE(posix::NativeOf(crl), nullptr);
    const auto store = CertOpenSystemStoreW(u"CA");
    EXPECT_TRUE(CertAddCRLContextToStore(store, crl));
    EXPECT_TRUE(CertAddCRLContextToStore(store, crl));
    EXPECT_EQ(CertEnumCRLsInStore(store).size(), 1U);
    profile.Write("data/norvik/stores/CA/list.pem", tests::PemOf("X509 CRL", other) + ca.Pem());
    EXPECT_EQ(CertEnumCRLsInStore(store).size(), 2U);
    EXPECT_EQ(NamesIn(store), Texts{u"CA"});
    for (std::size_t size = 0; size < der.size(); ++size)
        ASSERT_FALSE(CertCreateCRLContext(ByteView(der).first(size))) << size;
    EXPECT_FALSE(CertCreateCRLContext(ca.Der()));
}

}  // namespace
