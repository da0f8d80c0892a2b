#pragma once
// The host's message service: reads PKCS#7 and CMS messages (RFC 2315, RFC 5652), DER or BER, checks the signatures of
// signed ones and writes signed ones again. A message may be far bigger than memory:
//
//     auto message = CryptMsgOpenToDecode(PKCS_7_ASN_ENCODING | X509_ASN_ENCODING, 0);
//     if (!CryptMsgUpdate(message, std::make_shared<FileSource>(std::move(*file)))) return GetLastError();
//     auto signer = CryptMsgGetAndVerifySigner(message, 0, {CertOpenMessageStore(message)});
//
// Reading finds the structure by seeking over the content; the content itself is read once, in pieces, when a digest
// is first needed (or while it is passed to a sink, whichever comes first), and digested for all signers in that pass.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Certificates.h"
#include "platform/Stores.h"
#include "platform/Types.h"
#include "platform/formats/ByteSource.h"

namespace platform {

namespace cms {
struct SignedDataMessage;
struct SignerInfo;
class ContentDigests;
}  // namespace cms

constexpr std::uint32_t X509_ASN_ENCODING = 0x1;
constexpr std::uint32_t PKCS_7_ASN_ENCODING = 0x10000;

constexpr std::uint32_t CMSG_DATA = 1;
constexpr std::uint32_t CMSG_SIGNED = 2;
constexpr std::uint32_t CMSG_ENVELOPED = 3;
constexpr std::uint32_t CMSG_SIGNED_AND_ENVELOPED = 4;
constexpr std::uint32_t CMSG_HASHED = 5;
constexpr std::uint32_t CMSG_ENCRYPTED = 6;

constexpr std::uint32_t CMSG_DETACHED_FLAG = 0x4;

// An open message. A value: copies are the same message; the last one closes it. Null when it could not be opened. Not
// to be used from two threads at once.
class CryptMsg {
  public:
    CryptMsg() = default;
    explicit operator bool() const { return impl_ != nullptr; }
    class Impl;  // defined by the backend
    explicit CryptMsg(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}
    [[nodiscard]] const std::shared_ptr<Impl>& Backend() const { return impl_; }

  private:
    std::shared_ptr<Impl> impl_;
};

// --- What messages say ---

struct CRYPT_ALGORITHM_IDENTIFIER {
    std::string pszObjId;  // dotted
    Bytes Parameters;      // the whole element, empty if absent
};
struct CRYPT_ATTRIBUTE {
    std::string pszObjId;
    std::vector<Bytes> rgValue;  // each with identifier and length octets, as it stands in the message
};
using CRYPT_ATTRIBUTES = std::vector<CRYPT_ATTRIBUTE>;  // in the order of the message

constexpr std::uint32_t CERT_ID_ISSUER_SERIAL_NUMBER = 1;
constexpr std::uint32_t CERT_ID_KEY_IDENTIFIER = 2;
struct CERT_ID {
    std::uint32_t dwIdChoice = 0;
    Bytes Issuer;        // Name as it stands in the message
    Bytes SerialNumber;  // little-endian, as CERT_INFO has it
    Bytes KeyId;
};
struct CMSG_CMS_SIGNER_INFO {
    std::uint32_t dwVersion = 0;
    CERT_ID SignerId;
    CRYPT_ALGORITHM_IDENTIFIER HashAlgorithm, HashEncryptionAlgorithm;
    Bytes EncryptedHash;  // the signature value
    CRYPT_ATTRIBUTES AuthAttrs, UnauthAttrs;
    Bytes Encoded;  // the SignerInfo, byte for byte
};

// --- Reading ---

// The encoding must name PKCS_7_ASN_ENCODING. Flags: 0, or CMSG_DETACHED_FLAG for a signature whose content is given by
// a second update; content inside such a message is not looked at. Null with ERROR_INVALID_PARAMETER.
CryptMsg CryptMsgOpenToDecode(std::uint32_t encoding, std::uint32_t flags);

// The next piece, of any size, possibly empty; `final` ends it. Pieces of a message go to a temporary file when they
// become many; pieces of detached data are digested as they come and not kept. Reading: the first final update makes
// the message readable, with CMSG_DETACHED_FLAG a second one ends the data. Writing: the content, once.
// What cannot be read fails with CRYPT_E_ASN1_EOD (nothing there, or the message ends early), CRYPT_E_ASN1_BADTAG (no
// ASN.1 sequence at the start), CRYPT_E_BAD_ENCODE (anything else malformed, or something other than padding behind the
// message), CRYPT_E_UNEXPECTED_MSG_TYPE (a content type that is none of the six), ERROR_FILE_INVALID (certificates or
// signers over 16 MiB). Updates after the end fail with CRYPT_E_MSG_ERROR.
bool CryptMsgUpdate(const CryptMsg& message, ByteView piece, bool final);
// The whole message, or the whole data, from where it lies; final by itself. The source is read later, too, as long as
// the message is open.
bool CryptMsgUpdate(const CryptMsg& message, std::shared_ptr<ByteSource> source);

// A parameter and the type of its value.
template <typename Value>
struct CMSG_PARAM {
    std::uint32_t number;
};
constexpr CMSG_PARAM<std::uint32_t> CMSG_TYPE_PARAM{1};              // CMSG_DATA, CMSG_SIGNED, ...
constexpr CMSG_PARAM<Bytes> CMSG_CONTENT_PARAM{2};                   // of data and signed messages
constexpr CMSG_PARAM<std::string> CMSG_INNER_CONTENT_TYPE_PARAM{4};  // dotted OID of the signed content's type
constexpr CMSG_PARAM<std::uint32_t> CMSG_SIGNER_COUNT_PARAM{5};
constexpr CMSG_PARAM<CERT_ID> CMSG_SIGNER_CERT_INFO_PARAM{7};  // how the signer names its certificate
constexpr CMSG_PARAM<CRYPT_ALGORITHM_IDENTIFIER> CMSG_SIGNER_HASH_ALGORITHM_PARAM{8};
constexpr CMSG_PARAM<CRYPT_ATTRIBUTES> CMSG_SIGNER_AUTH_ATTR_PARAM{9};  // signed; empty: the signer has none
constexpr CMSG_PARAM<CRYPT_ATTRIBUTES> CMSG_SIGNER_UNAUTH_ATTR_PARAM{10};
constexpr CMSG_PARAM<std::uint32_t> CMSG_CERT_COUNT_PARAM{11};
constexpr CMSG_PARAM<Bytes> CMSG_CERT_PARAM{12};  // encoded, as it stands
constexpr CMSG_PARAM<std::uint32_t> CMSG_CRL_COUNT_PARAM{13};
constexpr CMSG_PARAM<Bytes> CMSG_CRL_PARAM{14};
constexpr CMSG_PARAM<Bytes> CMSG_COMPUTED_HASH_PARAM{22};  // of the content, by the signer's algorithm
constexpr CMSG_PARAM<Bytes> CMSG_ENCODED_MESSAGE{29};
constexpr CMSG_PARAM<CMSG_CMS_SIGNER_INFO> CMSG_CMS_SIGNER_INFO_PARAM{39};

// The index is the signer's, the certificate's or the CRL's, from 0 on, in the order of the message. Empty with
// CRYPT_E_MSG_ERROR while the message is not complete, CRYPT_E_UNEXPECTED_MSG_TYPE for a parameter that this type of
// message lacks, CRYPT_E_INVALID_INDEX for an index at or above the count.
// CMSG_CONTENT_PARAM: no bytes for a message without content (see CryptMsgGetContentSize); ERROR_FILE_INVALID for
// more than 256 MiB, which are to be had by CryptMsgReadContent. CMSG_COMPUTED_HASH_PARAM: CRYPT_E_MSG_ERROR where
// there is no content, NTE_BAD_ALGID for an algorithm the host lacks. CMSG_ENCODED_MESSAGE: see
// CryptMsgWriteEncodedMessage.
std::optional<std::uint32_t> CryptMsgGetParam(const CryptMsg& message, CMSG_PARAM<std::uint32_t> parameter,
                                              std::uint32_t index = 0);
std::optional<Bytes> CryptMsgGetParam(const CryptMsg& message, CMSG_PARAM<Bytes> parameter, std::uint32_t index = 0);
std::optional<std::string> CryptMsgGetParam(const CryptMsg& message, CMSG_PARAM<std::string> parameter,
                                            std::uint32_t index = 0);
std::optional<CERT_ID> CryptMsgGetParam(const CryptMsg& message, CMSG_PARAM<CERT_ID> parameter,
                                        std::uint32_t index = 0);
std::optional<CRYPT_ALGORITHM_IDENTIFIER> CryptMsgGetParam(const CryptMsg& message,
                                                           CMSG_PARAM<CRYPT_ALGORITHM_IDENTIFIER> parameter,
                                                           std::uint32_t index = 0);
std::optional<CRYPT_ATTRIBUTES> CryptMsgGetParam(const CryptMsg& message, CMSG_PARAM<CRYPT_ATTRIBUTES> parameter,
                                                 std::uint32_t index = 0);
std::optional<CMSG_CMS_SIGNER_INFO> CryptMsgGetParam(const CryptMsg& message,
                                                     CMSG_PARAM<CMSG_CMS_SIGNER_INFO> parameter,
                                                     std::uint32_t index = 0);

// How many bytes of content are in the message itself, without reading them. Empty: there is none (last error 0: a
// detached signature, or a message opened as one) or it cannot be told (last error set).
std::optional<std::uint64_t> CryptMsgGetContentSize(const CryptMsg& message);

// Gets the content in pieces. False gives up.
using MessageSink = std::function<bool(ByteView)>;
// Passes the content (of a detached message: the data, if they were given as a source) to the sink, which may be empty.
// If the content was not digested before, it is now, in the same pass: what the sink got is what the signatures are
// then checked against, whatever happens to the file meanwhile. The verdict comes after the sink has all: until then it
// must keep the bytes to itself. False with the last error set; ERROR_CANCELLED if the sink gave up; ERROR_HANDLE_EOF
// if the file has shrunk.
bool CryptMsgReadContent(const CryptMsg& message, const MessageSink& sink);

// The attribute of that type that stands first; null if there is none.
const CRYPT_ATTRIBUTE* CertFindAttribute(std::string_view oid, const CRYPT_ATTRIBUTES& attributes);
// The value of a signingTime (RFC 5652 11.3): UTCTime or GeneralizedTime, whole. Empty with the last error set.
std::optional<FILETIME> DecodeChoiceOfTime(ByteView der);

// The certificates, CRLs and OCSP answers that the message carries, also as its signers' unsigned attributes
// certificate-values and revocation-values, in a memory store (CERT_STORE_PROV_MSG). What does not decode is
// left out. Null with the last error set if the message is none that could carry any.
CertStore CertOpenMessageStore(const CryptMsg& message);
// All certificates of the store that the identifier fits, each once, in the store's order, at most 8 of them: more than
// one where somebody gave two the same issuer and serial number. Where none has the issuer byte for byte, those whose
// issuer has the same name in another encoding. Empty with CRYPT_E_NOT_FOUND.
std::vector<CertificateContext> CertFindSubjectCertificates(const CertStore& store, const CERT_ID& id);

// --- Checking signatures ---

constexpr std::uint32_t CMSG_VERIFY_SIGNER_CERT = 2;
struct CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA {
    std::uint32_t dwSignerIndex = 0;
    std::uint32_t dwSignerType = CMSG_VERIFY_SIGNER_CERT;  // no other is known
    CertificateContext pvSigner;
};
template <typename Para>
struct CMSG_CTRL {
    std::uint32_t number;
};
constexpr CMSG_CTRL<CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA> CMSG_CTRL_VERIFY_SIGNATURE_EX{19};

// Whether the signer's signature is good under the key of this certificate (RFC 5652 5.4 to 5.6). Reads the content if
// no digest of it is known yet. Not checked here: that the certificate is the one that the signer names by issuer and
// serial number, its chain and its revocation.
//   CRYPT_E_HASH_VALUE  the content's digest is not the signed one, or there is no content
//   TRUST_E_BAD_DIGEST  the value does not verify, with the signed attributes as stored or in DER order; also: digest
//                       or signature algorithm unknown or at odds, the form of the attributes proves nothing (content
//                       type or digest missing or doubled, ...), a signing certificate reference (RFC 5035) names
//                       another certificate. So every signature that is not good falls in the class "invalid".
//   CRYPT_E_INVALID_INDEX, CRYPT_E_UNEXPECTED_MSG_TYPE, ERROR_INVALID_PARAMETER (no certificate, other signer type)
//   or why the content could not be read
bool CryptMsgControl(const CryptMsg& message, std::uint32_t flags,
                     CMSG_CTRL<CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA> control,
                     const CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA& parameters);

// The signer's certificate: of those that the identifier fits, the one with which the signature is good; without one,
// the first of them. So an impostor with the issuer and serial number of the signer's certificate that stands first
// does not make a good signature bad, and a bad one is not good because of where its certificate stands: whose key made
// it is the one whose chain is judged.
struct FoundSigner {
    CertificateContext certificate;  // null: none fits (CRYPT_E_SIGNER_NOT_FOUND)
    ErrorCode status = 0;            // what CryptMsgControl says of it; CRYPT_E_SIGNER_NOT_FOUND without certificate
};
// Looks in the stores in the order given; the first is usually CertOpenMessageStore of the message. Empty only with
// CRYPT_E_NO_SIGNER (a message without signers), CRYPT_E_INVALID_INDEX, CRYPT_E_UNEXPECTED_MSG_TYPE or
// CRYPT_E_MSG_ERROR.
std::optional<FoundSigner> CryptMsgGetAndVerifySigner(const CryptMsg& message, std::uint32_t index,
                                                      const std::vector<CertStore>& stores);

// What a second checker needs so that nothing is read or digested twice. The parts live as long as the message.
struct SignedMessageParts {
    const cms::SignedDataMessage& message;
    const std::vector<cms::SignerInfo>& signers;
    const cms::ContentDigests& digests;  // in the algorithms of the message and of all signers, where the host has them
    bool hasContent = false;             // false: nothing to digest was there, so that no digest is known
};
// Reads the content if that has not been done. Empty with the last error set if the message is not a signed one that is
// complete, or the content cannot be read.
std::optional<SignedMessageParts> CryptMsgGetSignedParts(const CryptMsg& message);

// --- Writing signed messages ---

struct CMSG_SIGNED_ENCODE_INFO {
    std::vector<CMSG_CMS_SIGNER_INFO> rgSigners;  // of other messages: their Encoded bytes are taken over as they stand
    std::vector<Bytes> rgCertEncoded, rgCrlEncoded;
};
// Type: CMSG_SIGNED alone. With CMSG_DETACHED_FLAG the content that is then given is not written. The inner content
// type must be the one that the signers signed (CMSG_INNER_CONTENT_TYPE_PARAM of where they came from). Null with
// ERROR_INVALID_PARAMETER, CRYPT_E_UNEXPECTED_MSG_TYPE (another type) or CRYPT_E_BAD_ENCODE (a signer or an OID that
// does not decode).
CryptMsg CryptMsgOpenToEncode(std::uint32_t encoding, std::uint32_t flags, std::uint32_t type,
                              const CMSG_SIGNED_ENCODE_INFO& info,
                              std::string_view innerContentType = "1.2.840.113549.1.7.1");

// The message as CMSG_ENCODED_MESSAGE has it, in pieces: one that was read, as it stands; one that is being written, in
// definite lengths with the taken-over parts byte for byte. ERROR_CANCELLED if the sink gave up.
bool CryptMsgWriteEncodedMessage(const CryptMsg& message, const MessageSink& sink);

}  // namespace platform
