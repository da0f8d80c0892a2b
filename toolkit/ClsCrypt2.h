#pragma once
// Makes and checks CMS signatures (RFC 5652) with CAdES attributes (RFC 5035, RFC 5126) and timestamps (RFC 3161).

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Certificates.h"
#include "toolkit/ClsBase.h"
#include "toolkit/ClsHttp.h"

namespace toolkit {

class ClsBinData;
class ClsJsonObject;

namespace cms {
struct DigestedMessage;
struct Findings;
}  // namespace cms

// Told while a long operation goes on: bytes done and bytes in all. Called on the thread of the operation, with the
// object's lock held; must not throw and must not call back into the object.
using ProgressHandler = std::function<void(std::uint64_t done, std::uint64_t total)>;

class ClsCrypt2 : public ClsBase {
  public:
    // --- Settings ---
    void SetHashAlgorithm(std::string_view name);      // "sha1", "sha256" (the default), "sha384", "sha512"
    void SetCadesEnabled(bool on);                     // signingCertificateV2 whatever the attributes say
    void SetIncludeCertChain(bool on);                 // the signer's chain, not the signer alone
    void SetSigningAttributes(std::string_view json);  // which attributes; see SignedAttributes.h
    void SetCmsOptions(std::string_view json);         // of verification
    // The signed attributes in DER order (X.690, 11.6) instead of the order they are made in.
    void SetDerOrder(bool on);
    void SetProgress(ProgressHandler handler);
    // Replaces the signers by this one; false for a null certificate, and then there is none.
    bool SetSigningCert(const platform::CertificateContext& certificate);
    // The client for timestamp requests, shared with whoever else holds it; null: a default one for each request.
    void SetTsaHttp(std::shared_ptr<ClsHttp> http);

    // --- Signing (ClsCrypt2.cpp) ---
    // Attached: the output is a SignedData with the file in it. The input is read once, in pieces, and not touched;
    // the output stands under its name only when it is complete, also where that is the name of the input.
    bool CreateP7M(const std::filesystem::path& input, const std::filesystem::path& output);
    // Detached: the output is a SignedData without content.
    bool CreateP7S(const std::filesystem::path& input, const std::filesystem::path& output);

    // --- Verification (ClsCrypt2Verify.cpp) ---
    // Detached. An empty content is refused here; VerifyDetachedFile judges it like any other.
    bool VerifyBytes(platform::ByteView content, platform::ByteView signature);
    // Attached. On success the object's bytes are replaced by the content; else they stay.
    bool OpaqueVerifyBd(ClsBinData& data);
    // Attached. On success the content is written to the output; else no file is made and what stood there stays.
    bool VerifyP7M(const std::filesystem::path& input, const std::filesystem::path& output);
    // Attached, without taking the content out. The file is read in pieces, whatever its size.
    bool VerifyFile(const std::filesystem::path& input);
    // Detached, from two files; the signature may also be Base64 or PEM.
    bool VerifyDetachedFile(const std::filesystem::path& content, const std::filesystem::path& signature);
    // What VerifyBytes (detached, content not empty) and OpaqueVerifyBd find, where the message has been read and its
    // content digested already.
    bool VerifyDigested(const cms::DigestedMessage& message);
    // The findings of the last verification as JSON; null before one, and after one whose input was no SignedData.
    [[nodiscard]] std::unique_ptr<ClsJsonObject> LastJsonData() const;
    // The same as data, with the digests of the content; null likewise.
    [[nodiscard]] std::shared_ptr<const cms::Findings> LastFindings() const;

  private:
    bool CreateSignature(Operation& operation, const std::filesystem::path& input, const std::filesystem::path& output,
                         bool attached);
    bool VerifyOpaque(Operation& operation, platform::ByteView message, platform::Bytes& content);

    std::string hashAlgorithm_ = "sha256";
    bool cadesEnabled_ = false;
    bool includeCertChain_ = true;
    bool derOrder_ = false;
    std::string signingAttributes_;
    std::string cmsOptions_;
    std::vector<platform::CertificateContext> signers_;
    std::shared_ptr<ClsHttp> tsaHttp_;
    ProgressHandler progress_;
    std::shared_ptr<const cms::Findings> lastFindings_;
};

}  // namespace toolkit
