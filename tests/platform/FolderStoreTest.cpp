// A store that is a folder: changes from outside, adding and removing.

#include <atomic>
#include <thread>

#include "platform/posix/FolderContent.h"
#include "tests/platform/StoreFixture.h"

namespace {

using namespace platform;
using namespace tests;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

class FolderStore : public StoreFixture {
  protected:
    static CertificateContext WithKey(const Certificate& certificate) {
        EVP_PKEY_up_ref(certificate.PrivateKey().get());
        return posix::WithOwnState(ContextOf(certificate),
                                   posix::MakeMemoryKey(posix::EvpKeyPtr(certificate.PrivateKey().get())));
    }
    static bool Remove(const CertStore& store, const Certificate& certificate) {
        return CertDeleteCertificateFromStore(store, ContextOf(certificate));
    }
    const CertStore ca_ = UserStore(u"CA"), my_ = UserStore(u"MY");
};

TEST_F(FolderStore, EveryChangeIsSeenByTheNextOperation) {
    EXPECT_TRUE(NamesIn(ca_).empty());
    Put("CA/1.pem", a_.Pem());
    for (const auto pause : {250ms, 0ms}) {  // at once, and when the look before is long past
        EXPECT_EQ(NamesIn(ca_), Texts{u"a"});
        Put("CA/1.pem", b_.Pem());  // in place
        EXPECT_FALSE(FindIn(ca_, a_));
        EXPECT_EQ(NamesIn(ca_), Texts{u"b"});
        Put("CA/0.pem", c_.Pem());
        EXPECT_TRUE(FindIn(ca_, c_));
        EXPECT_EQ(NamesIn(ca_), (Texts{u"c", u"b"}));
        fs::remove(profile_.Stores() / "CA/0.pem");
        EXPECT_TRUE(CertFindBySubject(ca_, ContextOf(c_).Info().Subject).empty());
        Put("CA/1.pem", a_.Pem());
        std::this_thread::sleep_for(pause);
    }
    fs::remove_all(profile_.Stores() / "CA");
    EXPECT_TRUE(NamesIn(ca_).empty());
}

// Many times written within one tick of the file system's clock, always with the same size.
TEST_F(FolderStore, ContentOfTheSameSizeInTheSameInstantIsSeen) {
    for (int i = 0; i < 200; ++i) {
        std::string pem = (i % 2 == 0 ? a_ : b_).Pem();
        pem.resize(1024, '\n');
        Put("CA/1.pem", pem);
        ASSERT_EQ(NamesIn(ca_), Texts{i % 2 == 0 ? u"a" : u"b"}) << i;
        if (i == 0) std::this_thread::sleep_for(250ms);  // the folder itself is old by then
    }
}

TEST_F(FolderStore, AnUnchangedFileIsNotDecodedAgain) {
    InstallCertificate(profile_, "CA", a_);
    std::this_thread::sleep_for(250ms);
    const auto decoded = [] { return CertEnumCertificatesInStore(UserStore(u"CA")).at(0).Backend()->decoded; };
    const auto first = decoded();
    EXPECT_EQ(decoded(), first);
    Put("CA/other.pem", b_.Pem());
    EXPECT_EQ(NamesIn(UserStore(u"CA")).size(), 2U);
    EXPECT_EQ(decoded(), first);
}

TEST_F(FolderStore, SeveralThreadsMayReadWhileFilesChange) {
    InstallCertificate(profile_, "CA", a_);
    std::atomic<int> misses = 0;
    {
        std::vector<std::jthread> readers;
        for (int i = 0; i < 4; ++i) {
            readers.emplace_back([&](const std::stop_token& stop) {
                while (!stop.stop_requested())
                    misses += !FindIn(UserStore(u"CA"), a_) || NamesIn(UserStore(u"CA")).empty();
            });
        }
        for (int i = 0; i < 50; ++i) {
            EXPECT_TRUE(Add(UserStore(u"CA"), ContextOf(b_)));
            EXPECT_TRUE(Remove(UserStore(u"CA"), b_));
        }
    }
    EXPECT_EQ(misses, 0);
}

TEST_F(FolderStore, AddingWritesTheCertificateAndItsKeyForTheOwnerAlone) {
    ASSERT_TRUE(Add(CertOpenSystemStoreW(u"MY"), WithKey(a_)));
    EXPECT_EQ(ModeOf(profile_.Stores() / "MY"), 0700U);
    EXPECT_EQ(ModeOf(KeyFile(a_)), 0600U);
    EXPECT_EQ(ReadFile(KeyFile(a_).replace_extension(".cer")), AsText(a_.Der()));
    EXPECT_TRUE(CryptAcquireCertificatePrivateKey(InMy(a_), CRYPT_ACQUIRE_COMPARE_KEY_FLAG));
    // In another store no key is written.
    ASSERT_TRUE(Add(ca_, WithKey(a_)));
    EXPECT_FALSE(fs::exists(profile_.Stores() / "CA" / KeyFile(a_).filename()));
}

TEST_F(FolderStore, DispositionsHoldAndNoKeyIsLost) {
    const auto older = Make("x", 1'600'000'000, {9}), newer = Make("x", 1'700'000'000, {9}),
               forged = Make("x", 1'800'000'000, {9}, 1);
    ASSERT_TRUE(Add(my_, WithKey(older)));
    EXPECT_FAILS(Add(my_, ContextOf(newer)), CRYPT_E_EXISTS);
    const std::tuple<Certificate, std::uint32_t, Certificate, bool> steps[] = {
        // The same certificate without its key, as somebody sends it: the key that is here stays.
        {older, CERT_STORE_ADD_REPLACE_EXISTING, older, true},
        // A newer encoding with the same public key: the key goes over to it.
        {newer, CERT_STORE_ADD_NEWER, newer, true},
        {older, CERT_STORE_ADD_NEWER, newer, true},
        // A forged one with the same issuer and serial number cannot take the key away.
        {forged, CERT_STORE_ADD_REPLACE_EXISTING, forged, false},
    };
    for (const auto& [added, disposition, left, hasKey] : steps) {
        EXPECT_TRUE(Add(my_, ContextOf(added), disposition));
        const auto listed = CertEnumCertificatesInStore(my_);
        ASSERT_EQ(listed, std::vector{ContextOf(left)});
        EXPECT_EQ(CertHasPrivateKey(listed[0]), hasKey);
    }
    EXPECT_TRUE(fs::exists(KeyFile(newer)));
}

TEST_F(FolderStore, AKeyWithAPassphraseIsNotReplacedByAPlainOne) {
    ASSERT_TRUE(ImportPrivateKey(ContextOf(a_), Secret(a_.Pkcs8()), Secret("тайна")));
    const std::string encrypted = ReadFile(KeyFile(a_));
    ASSERT_NE(encrypted.find("ENCRYPTED"), std::string::npos);
    EXPECT_TRUE(Add(my_, WithKey(a_), CERT_STORE_ADD_REPLACE_EXISTING));
    EXPECT_EQ(ReadFile(KeyFile(a_)), encrypted);
}

TEST_F(FolderStore, RemovingTakesTheKeyAndLeavesTheNeighbours) {
    InstallCertificate(profile_, "MY", a_, true);
    const std::string rest = b_.Pem() + b_.KeyPem();
    const auto bundle = Put("MY/bundle.pem", "my notes\n" + a_.Pem() + "more notes\n" + rest);
    fs::permissions(bundle, fs::perms(0600));
    EXPECT_TRUE(Remove(my_, a_));
    EXPECT_EQ(NamesIn(my_), Texts{u"b"});
    EXPECT_FALSE(fs::exists(KeyFile(a_)));
    EXPECT_EQ(ReadFile(bundle), "my notes\nmore notes\n" + rest);
    EXPECT_EQ(ModeOf(bundle), 0600U);
    EXPECT_TRUE(Remove(my_, b_));
    EXPECT_EQ(ReadFile(bundle), "my notes\nmore notes\n" + b_.KeyPem()) << "a private key was lost";
    EXPECT_FAILS(Remove(my_, b_), CRYPT_E_NOT_FOUND);
}

TEST_F(FolderStore, OneIsTakenOutOfABinaryBundle) {
    fs::create_directories(profile_.Stores() / "CA");
    Bundle(profile_.Stores() / "CA/bundle.p7b", "DER");
    EXPECT_TRUE(Remove(ca_, a_));
    EXPECT_EQ(NamesIn(ca_), Texts{u"b"});
    EXPECT_TRUE(Remove(ca_, b_));
    EXPECT_TRUE(fs::is_empty(profile_.Stores() / "CA"));
}

TEST_F(FolderStore, WhatLiesElsewhereIsNotRemoved) {
    PutForAll("CA/a.pem", a_.Pem());
    EXPECT_FAILS(Remove(CertOpenSystemStoreW(u"CA"), a_), CRYPT_E_NOT_FOUND);
    EXPECT_TRUE(Remove(CertOpenSystemStoreAt(StoreLocation::localMachine, u"CA", false), a_));
}

TEST_F(FolderStore, CrlsAreListedAndAddedOnce) {
    const auto ca = Issue(AuthoritySpec("CA", 0));
    const Bytes der = MakeCrl(ca);
    const auto crl = CertCreateCRLContext(der);
    ASSERT_TRUE(crl);
    EXPECT_EQ(CopyOf(crl.Issuer()), ca.SubjectDer());
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(CertAddCRLContextToStore(ca_, crl));
    EXPECT_EQ(CertEnumCRLsInStore(ca_).size(), 1U);
    Put("CA/list.pem", PemOf("X509 CRL", MakeCrl(ca, {.number = 2})) + ca.Pem());
    EXPECT_EQ(CertEnumCRLsInStore(ca_).size(), 2U);
    EXPECT_EQ(NamesIn(ca_), Texts{u"CA"});
    for (std::size_t size = 0; size < der.size(); ++size)
        ASSERT_FALSE(CertCreateCRLContext(ByteView(der).first(size))) << size;
    EXPECT_FALSE(CertCreateCRLContext(ca.Der()));
}

}  // namespace
