#pragma once
// Makes one signature file out of one input file.

#include <filesystem>
#include <optional>
#include <vector>

#include "platform/Certificates.h"
#include "platform/Files.h"
#include "platform/Hash.h"
#include "toolkit/ClsCrypt2.h"
#include "toolkit/cms/SignerKey.h"
#include "toolkit/cms/SigningOptions.h"

namespace toolkit::cms {

struct SignatureRequest {
    platform::CertificateContext signer;
    platform::HashAlgorithm hash = platform::HashAlgorithm::sha256;
    SigningOptions options;
    bool includeChain = true;
    bool derOrder = false;          // signed attributes sorted
    const ClsHttp* http = nullptr;  // null: a default client
    ProgressHandler progress;
};

// One use per object. The request and the log must outlive it.
class SignatureMaker {
  public:
    SignatureMaker(const SignatureRequest& request, OperationLog& log) : request_(request), log_(log) {}
    // False with the reason in the log; then nothing stands under the output's name that did not before.
    bool Make(const std::filesystem::path& input, const std::filesystem::path& output, bool attached);

  private:
    bool Prepare(const std::filesystem::path& input);
    bool MakeDetached(platform::OutputFile output);
    bool MakeAttachedInMemory(platform::OutputFile output);
    bool MakeAttached(platform::OutputFile output, const std::filesystem::path& target);

    std::optional<platform::OutputFile> CreateOutput(const std::filesystem::path& target);
    bool Write(platform::OutputFile& output, platform::ByteView bytes);
    // Writes all of the file and gives it its name.
    bool WriteWhole(platform::OutputFile& output, std::initializer_list<platform::ByteView> parts);
    bool Finish(platform::OutputFile& output, platform::ByteView tail);
    std::optional<platform::Bytes> CopyContent(platform::OutputFile& output, platform::ByteView head,
                                               const ProgressHandler& progress);

    // What follows the content, once its digest is known: signs and fetches the timestamp. Empty on failure.
    platform::Bytes MakeTail(platform::ByteView contentDigest);
    std::optional<platform::Bytes> MakeSignerInfo(platform::ByteView contentDigest);
    std::optional<platform::Bytes> MakeUnsignedAttributes(platform::ByteView signature);

    const SignatureRequest& request_;
    OperationLog& log_;
    std::optional<platform::InputFile> input_;
    std::optional<SignerKey> key_;
    std::vector<platform::CertificateContext> certificates_;  // root first
};

}  // namespace toolkit::cms
