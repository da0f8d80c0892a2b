#pragma once
// A user's certificates and how the tests of the stores look at them.

#include <gtest/gtest.h>

#include "platform/Keys.h"
#include "platform/Stores.h"
#include "platform/posix/Native.h"
#include "tests/platform/Child.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/LastError.h"
#include "tests/support/Process.h"

namespace tests {

using Texts = std::vector<std::u16string>;

inline Certificate Make(const std::string& name, std::int64_t notBefore = 1'700'000'000, Bytes serial = {},
                        unsigned key = 0) {
    return Issue({.subject = {{"CN", name}},
                  .serial = std::move(serial),
                  .notBefore = notBefore,
                  .key = TestKey(KeyType::p256, key)});
}
inline Texts NamesIn(const platform::CertStore& store) {
    Texts names;
    for (const auto& certificate : platform::CertEnumCertificatesInStore(store))
        names.push_back(platform::CertGetNameStringW(certificate, platform::CERT_NAME_SIMPLE_DISPLAY_TYPE, 0));
    return names;
}
inline platform::CertificateContext FindIn(const platform::CertStore& store, const Certificate& certificate) {
    return platform::CertFindBySha1(store, platform::posix::Sha1Of(ContextOf(certificate)));
}

class StoreFixture : public testing::Test {
  protected:
    // The user's folder of a store alone: no tokens of this machine, no trust anchors.
    static platform::CertStore UserStore(std::u16string_view name) {
        return platform::CertOpenSystemStoreAt(platform::StoreLocation::currentUser, name, false);
    }
    static platform::CertificateContext InMy(const Certificate& certificate) {
        return FindIn(UserStore(u"MY"), certificate);
    }
    static bool Add(const platform::CertStore& store, const platform::CertificateContext& certificate,
                    std::uint32_t disposition = platform::CERT_STORE_ADD_NEW) {
        return platform::CertAddCertificateContextToStore(store, certificate, disposition);
    }
    // A file below the user's stores.
    std::filesystem::path Put(const std::string& name, std::string_view content) const {
        return profile_.Write(profile_.Stores() / name, content);
    }
    void PutForAll(const std::string& name, std::string_view content) const {
        profile_.Write(profile_.Machine() / "stores" / name, content);
    }
    [[nodiscard]] std::filesystem::path KeyFile(const Certificate& certificate) const {
        return profile_.Stores() / "MY" / (certificate.Thumbprint() + ".key");
    }
    // Two certificates in one PKCS#7 bundle at the path, in this form.
    void Bundle(const std::filesystem::path& path, const char* form) const {
        const auto pem = profile_.Write("both.pem", a_.Pem() + b_.Pem());
        const auto done =
            RunProgram({"openssl", "crl2pkcs7", "-nocrl", "-certfile", pem, "-outform", form, "-out", path.string()});
        EXPECT_EQ(done.status, 0) << done.Summary();
    }

    const Profile profile_;
    const Certificate a_ = Make("a"), b_ = Make("b"), c_ = Make("c");
};

}  // namespace tests
