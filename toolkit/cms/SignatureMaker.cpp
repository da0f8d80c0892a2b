#include "toolkit/cms/SignatureMaker.h"

#include <algorithm>

#include "platform/System.h"
#include "platform/Text.h"
#include "platform/formats/DerWriter.h"
#include "toolkit/cms/ContentPass.h"
#include "toolkit/cms/HashThread.h"
#include "toolkit/cms/Message.h"
#include "toolkit/cms/PlatformFailure.h"
#include "toolkit/cms/SignatureAlgorithms.h"
#include "toolkit/cms/SignedDataFrame.h"
#include "toolkit/cms/SignerCertificates.h"
#include "toolkit/cms/TimestampClient.h"

namespace toolkit::cms {

using platform::Bytes;
using platform::ByteView;
using platform::OutputFile;

namespace {

// Room for what is not known before the content has been read. Only the number of octets of three lengths hangs on it,
// and a wrong guess costs a second copy of the content, so that a rough one will do.
constexpr std::uint64_t kSignerInfoGuess = 1024;
constexpr std::uint64_t kTokenGuess = 8192;

}  // namespace

bool SignatureMaker::Make(const std::filesystem::path& input, const std::filesystem::path& output, bool attached) {
    if (!Prepare(input)) return false;
    // Before anybody is asked for a PIN or a timestamp is used up, the target folder must show that it can be written.
    auto file = CreateOutput(output);
    if (!file) return false;
    if (!attached) return MakeDetached(std::move(*file));
    if (input_->Size() <= HashThread::kPieceSize) return MakeAttachedInMemory(std::move(*file));
    return MakeAttached(std::move(*file), output);
}

bool SignatureMaker::Prepare(const std::filesystem::path& input) {
    input_ = platform::InputFile::Open(input);
    if (!input_) {
        LogPlatformFailure(log_, "Failed to open the input file.");
        log_.Value("path", input.string());
        return false;
    }
    key_ = SignerKey::Open(request_.signer, log_);
    if (!key_) return false;
    auto certificates = CertificatesFor(request_.signer, request_.includeChain, log_);
    if (!certificates) return false;
    certificates_ = std::move(*certificates);
    return true;
}

bool SignatureMaker::MakeDetached(OutputFile output) {
    const auto digest = PassContent(*input_, request_.hash, nullptr, request_.progress, log_);
    if (!digest) return false;
    const Bytes tail = MakeTail(*digest);
    if (tail.empty()) return false;
    return WriteWhole(output, {SignedDataFrame(request_.hash, std::nullopt).Head(tail.size()), tail});
}

bool SignatureMaker::MakeAttachedInMemory(OutputFile output) {
    Bytes content;
    const auto keep = [&content](ByteView piece) {
        content.assign(piece.begin(), piece.end());
        return true;
    };
    const auto digest = PassContent(*input_, request_.hash, keep, request_.progress, log_);
    if (!digest) return false;
    const Bytes tail = MakeTail(*digest);
    if (tail.empty()) return false;
    return WriteWhole(output, {SignedDataFrame(request_.hash, content.size()).Head(tail.size()), content, tail});
}

bool SignatureMaker::MakeAttached(OutputFile output, const std::filesystem::path& target) {
    const SignedDataFrame frame(request_.hash, input_->Size());
    const std::uint64_t guess = SignedDataFrame::Tail(certificates_, {}).size() + key_->SignatureSize() +
                                kSignerInfoGuess + (request_.options.timestamp.enabled ? kTokenGuess : 0);
    const Bytes reserved = frame.Head(guess);
    const auto digest = CopyContent(output, reserved, request_.progress);
    if (!digest) return false;
    const Bytes tail = MakeTail(*digest);
    if (tail.empty()) return false;

    const Bytes head = frame.Head(tail.size());
    if (head.size() == reserved.size()) {
        if (!output.WriteAt(0, head)) {
            LogPlatformFailure(log_, "Failed to write the output file.");
            return false;
        }
        return Finish(output, tail);
    }
    // One of the lengths takes an octet more or less than was reserved: the content has to stand elsewhere.
    auto again = CreateOutput(target);
    if (!again) return false;
    output = std::move(*again);
    const auto secondDigest = CopyContent(output, head, nullptr);
    if (!secondDigest) return false;
    if (*secondDigest != *digest) {
        log_.Line("The input file changed while it was read.");
        return false;
    }
    return Finish(output, tail);
}

std::optional<Bytes> SignatureMaker::CopyContent(OutputFile& output, ByteView head, const ProgressHandler& progress) {
    if (!Write(output, head)) return std::nullopt;
    return PassContent(
        *input_, request_.hash, [&](ByteView piece) { return Write(output, piece); }, progress, log_);
}

std::optional<OutputFile> SignatureMaker::CreateOutput(const std::filesystem::path& target) {
    auto output = OutputFile::Create(target);
    if (!output) {
        LogPlatformFailure(log_, "Failed to create the output file.");
        log_.Value("path", target.string());
    }
    return output;
}

bool SignatureMaker::Write(OutputFile& output, ByteView bytes) {
    if (output.Write(bytes)) return true;
    LogPlatformFailure(log_, "Failed to write the output file.");
    return false;
}

bool SignatureMaker::WriteWhole(OutputFile& output, std::initializer_list<ByteView> parts) {
    if (output.Write(std::span(parts.begin(), parts.size())) && output.Commit()) return true;
    LogPlatformFailure(log_, "Failed to write the output file.");
    return false;
}

bool SignatureMaker::Finish(OutputFile& output, ByteView tail) {
    if (output.Write(tail) && output.Commit()) return true;
    LogPlatformFailure(log_, "Failed to write the output file.");
    return false;
}

Bytes SignatureMaker::MakeTail(ByteView contentDigest) {
    const auto signerInfo = MakeSignerInfo(contentDigest);
    return signerInfo ? SignedDataFrame::Tail(certificates_, *signerInfo) : Bytes();
}

std::optional<Bytes> SignatureMaker::MakeSignerInfo(ByteView contentDigest) {
    std::vector<Bytes> attributes = MakeSignedAttributes(request_.options.attributes, contentDigest,
                                                         platform::GetSystemTimeAsFileTime(), request_.signer);
    if (request_.derOrder) {
        std::sort(attributes.begin(), attributes.end(),
                  [](const Bytes& a, const Bytes& b) { return platform::AsText(a) < platform::AsText(b); });
    }

    // The attributes are signed under the tag of a SET, which the file doesn't hold (RFC 5652, 5.4); without any, the
    // signature is over the content itself.
    const Bytes signedDigest = attributes.empty()
                                   ? platform::CopyOf(contentDigest)
                                   : platform::Digest(request_.hash, WrapAttributes(platform::tag::kSet, attributes));
    const Bytes signature = key_->Sign(request_.hash, signedDigest, log_);
    if (signature.empty()) return std::nullopt;
    const auto unsignedAttributes = MakeUnsignedAttributes(signature);
    if (!unsignedAttributes) return std::nullopt;

    platform::DerWriter out;
    out.Sequence([&] {
        out.Integer(1);
        out.Raw(IssuerAndSerialNumber(request_.signer));
        out.AlgorithmWithNull(platform::OidOf(request_.hash));
        if (!attributes.empty()) out.Raw(WrapAttributes(platform::tag::ContextConstructed(0), attributes));
        WriteSignatureAlgorithm(out, key_->Algorithm(), request_.hash);
        out.OctetString(signature);
        out.Raw(*unsignedAttributes);
    });
    return out.Take();
}

std::optional<Bytes> SignatureMaker::MakeUnsignedAttributes(ByteView signature) {
    if (!request_.options.timestamp.enabled) return Bytes();
    const auto token = GetTimestampToken(request_.options.timestamp, signature, request_.http, log_);
    if (!token) {
        log_.Line("Some or all of the unauthenticated attributes could not be created.");
        return std::nullopt;
    }
    return WrapAttributes(platform::tag::ContextConstructed(1), {MakeAttribute(oid::kTimestampToken, *token)});
}

}  // namespace toolkit::cms
