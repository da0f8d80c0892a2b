#include "src/verification/WriteContent.h"

#include <stdexcept>

#include "platform/Files.h"
#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/verification/SignedFile.h"
#include "units/Helpers.h"

namespace verification {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void RaiseLastError() {
    throw MessageFault(platform::GetLastError());
}

void OpenAttached(tessaly::CryptMessageDecode& decoder, std::shared_ptr<platform::ByteSource> source,
                  bool mayBeEmpty = false) {
    OpenSigned(decoder, std::move(source));
    if (decoder.HasContent()) return;
    if (!mayBeEmpty || !platform::CryptMsgGetContentSize(decoder.message)) Raise(decoder);
}

platform::Bytes Encoded(const tessaly::CryptMessageDecode& decoder, const platform::CMSG_SIGNED_ENCODE_INFO& info) {
    const auto type = platform::CryptMsgGetParam(decoder.message, platform::CMSG_INNER_CONTENT_TYPE_PARAM);
    if (!type) RaiseLastError();
    tessaly::CryptMessageEncode encoder;
    const bool opened = encoder.OpenToEncode(platform::CMSG_DETACHED_FLAG, platform::CMSG_SIGNED, info, *type);
    // The content is neither written nor signed anew: its bytes play no part here.
    if (!opened || !encoder.Update({}, true)) Raise(encoder);
    auto encoded = encoder.GetParam(platform::CMSG_ENCODED_MESSAGE);
    if (!encoded) Raise(encoder);
    return std::move(*encoded);
}

// All that the message has of a kind.
template <typename Value>
std::vector<Value> Every(tessaly::CryptMessageDecode& decoder, platform::CMSG_PARAM<Value> kind, std::uint32_t count) {
    std::vector<Value> all;
    for (std::uint32_t i = 0; i < count; ++i) {
        auto one = decoder.GetParam(kind, i);
        if (!one) Raise(decoder);
        all.push_back(std::move(*one));
    }
    return all;
}

platform::CMSG_SIGNED_ENCODE_INFO PartsOf(tessaly::CryptMessageDecode& decoder, DetachedParts parts) {
    const auto signers = decoder.GetSignerCount();
    if (signers == 0) Raise(decoder);
    const bool all = parts == DetachedParts::everything;
    platform::CMSG_SIGNED_ENCODE_INFO info;
    info.rgSigners = Every(decoder, platform::CMSG_CMS_SIGNER_INFO_PARAM, all ? signers : 1);
    if (!all) return info;
    const auto certificates = decoder.GetParam(platform::CMSG_CERT_COUNT_PARAM).value_or(0);
    const auto crls = decoder.GetParam(platform::CMSG_CRL_COUNT_PARAM).value_or(0);
    info.rgCertEncoded = Every(decoder, platform::CMSG_CERT_PARAM, certificates);
    info.rgCrlEncoded = Every(decoder, platform::CMSG_CRL_PARAM, crls);
    return info;
}

void TellUnwritten(const fs::path& target) {
    const auto path = platform::ToWide(target.string());
    LogError(u"Failed to open: " + path);
    if (const auto application = CNorvikApp::Current())
        application->Interface().ShowMessage(
            {units::FormatString1(308, path), units::LoadStringW(288), ui::Message::Icon::error});
}

}  // namespace

void WriteContent(std::shared_ptr<platform::ByteSource> message, const fs::path& target, std::u16string_view digest,
                  bool mayBeEmpty) {
    tessaly::CryptMessageDecode decoder;
    OpenAttached(decoder, std::move(message), mayBeEmpty);
    auto output = platform::OutputFile::Create(target);
    if (!output) RaiseLastError();
    // The reader tells only that it was stopped; a full disk is what there is to say.
    auto unwritten = platform::ERROR_SUCCESS;
    const bool read = platform::CryptMsgReadContent(decoder.message, [&](platform::ByteView piece) {
        const bool written = output->Write(piece);
        if (!written) unwritten = platform::GetLastError();
        return written;
    });
    if (unwritten != platform::ERROR_SUCCESS) throw MessageFault(unwritten);
    if (!read) RaiseLastError();
    if (!digest.empty() && decoder.GetDigest() != digest)
        throw std::runtime_error("The file has changed since it was verified.");
    if (!output->Commit()) RaiseLastError();
}

bool ConvertToDetached(const fs::path& source, const fs::path& target) {
    const auto extension = ExtensionOf(source);
    if (extension.empty()) throw std::runtime_error("File without extension!!!");
    if (extension != u".p7m") throw std::runtime_error("Not a P7M file!!!");
    // The only copy of the content may be the one inside.
    std::error_code error;
    if (fs::equivalent(source, target, error)) throw std::runtime_error("The signature would replace its source.");
    return WriteDetached(OpenSource(source), target, DetachedParts::firstSigner);
}

bool WriteDetached(std::shared_ptr<platform::ByteSource> message, const fs::path& target, DetachedParts parts) {
    tessaly::CryptMessageDecode decoder;
    OpenAttached(decoder, std::move(message), parts == DetachedParts::everything);
    if (platform::WriteWholeFile(target, Encoded(decoder, PartsOf(decoder, parts)))) return true;
    TellUnwritten(target);
    return false;
}

}  // namespace verification
