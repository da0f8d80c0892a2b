#pragma once
// Signed messages as the object layer reads and writes them. Only binary messages: text forms are for others to decode.

#include <memory>
#include <string>

#include "crypt/CommonClass.h"
#include "crypt/CryptCertificate.h"
#include "crypt/CryptOID.h"
#include "crypt/CryptStore.h"
#include "platform/Messages.h"

namespace tessaly {

// Owns an open message and, once a signer was asked for, the store of the certificates in it. Every operation that
// fails leaves the platform's code in lastError. An object lives on one thread.
class CryptMessage : public CommonClass {
  public:
    CryptMessage() : store(platform::CertStore()) {}
    // Takes the handle over in place of the one held before. Whether it is not null.
    virtual bool Attach(platform::CryptMsg handle);

    // The next piece of the message or, after its end, of detached data; `final` ends it.
    bool Update(platform::ByteView data, bool final);
    // All of it, from a file or memory, by seeking and in pieces.
    bool Update(std::shared_ptr<platform::ByteSource> source);
    template <typename Value>
    std::optional<Value> GetParam(platform::CMSG_PARAM<Value> parameter, std::uint32_t index = 0) {
        return Kept(platform::CryptMsgGetParam(message, parameter, index));
    }
    template <typename Para>
    bool Control(platform::CMSG_CTRL<Para> control, const Para& parameters) {
        return Kept(platform::CryptMsgControl(message, 0, control, parameters));
    }

    platform::CryptMsg message;
    CryptStore store;  // declared behind the message, so that it is closed before it

  protected:
    // The result of a platform call; the reason of a failure goes to lastError.
    template <typename Result>
    Result Kept(Result result) {
        if (!result) lastError = platform::GetLastError();
        return result;
    }
};

class CryptMessageEncode : public CryptMessage {
  public:
    bool OpenToEncode(std::uint32_t flags, std::uint32_t type, const platform::CMSG_SIGNED_ENCODE_INFO& info,
                      std::string_view innerContentType = "1.2.840.113549.1.7.1");
};

// What a message holds. The readers never throw; what cannot be read is an empty value with the reason in lastError.
// Signers are told by index, from 0 on, in the order of the message.
class CryptMessageDecode : public CryptMessage {
  public:
    // CryptMsgOpenToDecode and Attach. Flags: 0 or CMSG_DETACHED_FLAG.
    bool OpenToDecode(std::uint32_t flags);

    // The content, if it is small enough to be held (256 MiB); empty for a detached signature, with CRYPT_E_NOT_FOUND
    // in lastError.
    platform::Bytes GetContent();
    // Whether there is any content, without reading it: what a detached signature and one over nothing lack.
    bool HasContent();
    // 0 on failure and for a message without signers (CRYPT_E_NO_SIGNER in lastError).
    std::uint32_t GetSignerCount();
    // Upper-case hexadecimal of the content's digest by the algorithm of the first signer. Reads the content if nobody
    // did.
    std::u16string GetDigest();

    // Null with the reason in lastError: CRYPT_E_SIGNER_NOT_FOUND if the message does not carry the certificate. Where
    // it carries two with the issuer and serial number of the signer's, the one whose key made the signature. The
    // certificate remembers the message's own certificates, so that a chain finds its issuers among them.
    std::unique_ptr<CryptCertificate> GetSignerCertificate(std::uint32_t index);
    // False if the signer is not there or the host's table does not know its digest algorithm.
    bool GetHashAlgorithm(std::uint32_t index, CryptOID& algorithm);
    // Seconds since 1970 of the first signed signingTime that decodes; 0 without one.
    std::int64_t GetSigningTime(std::uint32_t index);
    // Whether signingCertificateV2 (RFC 5035) is signed. The older attribute does not count.
    bool IsCades(std::uint32_t index);
    // Whether there is a timestamp token among the signed or, next, the unsigned attributes. A signer without signed
    // attributes has none.
    bool HasTimestamp(std::uint32_t index);
    // The signer's comment, each character one of the bytes that were signed as hexadecimal text.
    std::u16string GetComment(std::uint32_t index);

  private:
    platform::CRYPT_ATTRIBUTES SignedAttributes(std::uint32_t index);
};

// The text of a comment attribute: its values, each up to a NUL, joined and read as pairs of hexadecimal digits; a last
// single digit stands for itself.
std::u16string DecodeComment(const platform::CRYPT_ATTRIBUTE& attribute);

}  // namespace tessaly
