// Messages of other people's programs: their type, and what of them cannot be read.

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>

#include "tests/platform/MessageFixture.h"
#include "tests/support/Corpora.h"

namespace {

using namespace platform;

const std::map<std::string, std::uint32_t, std::less<>> kTypes{
    {"pkcs7-data", CMSG_DATA},
    {"pkcs7-signedData", CMSG_SIGNED},
    {"pkcs7-envelopedData", CMSG_ENVELOPED},
    {"pkcs7-signedAndEnvelopedData", CMSG_SIGNED_AND_ENVELOPED},
    {"pkcs7-digestData", CMSG_HASHED},
    {"pkcs7-encryptedData", CMSG_ENCRYPTED},
};

// What the program that wrote the index could not parse and we can, and what we say of the signature.
const std::map<std::string, ErrorCode, std::less<>> kReadable{
    // PKCS#7 1.5 content that is no OCTET STRING.
    {"asn1crypto__pkcs7-signed-digested.der", TRUST_E_BAD_DIGEST},
    {"gnutls__pkcs7-cat.p7", ERROR_SUCCESS},
    // A certificate that does not decode is left out.
    {"mbedtls-framework__pkcs7_data_signed_badcert.der", CRYPT_E_SIGNER_NOT_FOUND},
};

TEST(MessageCorpus, EveryBinaryMessageIsOfItsTypeOrRefused) {
    const auto folder = tests::Corpus("cms");
    std::ifstream index(folder / "INDEX.tsv");
    if (!index) GTEST_SKIP() << "no corpus beside the source tree";
    int read = 0, refused = 0;
    std::string line;
    std::getline(index, line);
    while (std::getline(index, line)) {
        std::istringstream fields(line);
        std::string path, kind, size, encoding;
        std::getline(fields, path, '\t') && std::getline(fields, kind, '\t') && std::getline(fields, size, '\t') &&
            std::getline(fields, encoding, '\t');
        SCOPED_TRACE(path);
        SetLastError(ERROR_SUCCESS);
        const auto message = tests::Read(AsBytes(tests::ReadFile(folder / path)));
        const auto code = GetLastError();
        const auto type = kTypes.find(kind);
        const bool known = type != kTypes.end() && encoding == "DER";
        if (known) {
            EXPECT_EQ(CryptMsgGetParam(message, CMSG_TYPE_PARAM), type->second) << code;
            ++read;
        } else if (const auto readable = kReadable.find(path); readable != kReadable.end()) {
            EXPECT_EQ(tests::Judge(message).status, readable->second);
        } else {
            EXPECT_FALSE(message);
            EXPECT_NE(code, ERROR_SUCCESS);
            ++refused;
        }
    }
    RecordProperty("read", read);
    RecordProperty("refused", refused);
    EXPECT_GE(read, 80);
}

}  // namespace
