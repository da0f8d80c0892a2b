#include "src/verification/VerifySignature.h"

#include <stdexcept>

#include "src/verification/SignedFile.h"
#include "src/verification/ToolkitCheck.h"
#include "src/verification/VerifySigner.h"

namespace verification {
namespace {

namespace fs = std::filesystem;

void RequireFile(const fs::path& file) {
    std::error_code error;
    if (!fs::exists(file, error)) throw std::runtime_error("File does not exist!!!");
}

// The name less ".p7s", or whatever four characters stand at its end.
fs::path BesideName(const fs::path& signFile) {
    constexpr int characters = 4;
    std::string name = signFile.native();
    for (int i = 0; i < characters && !name.empty(); ++i) {
        while (name.size() > 1 && (static_cast<unsigned char>(name.back()) & 0xC0) == 0x80)
            name.pop_back();
        name.pop_back();
    }
    return name;
}

// The open message with its data, and how large those are; none: the message holds its content.
std::optional<std::uint64_t> Open(tessaly::CryptMessageDecode& decoder, const MessageToVerify& input) {
    OpenSigned(decoder, input.message);
    const bool inside =
        decoder.HasContent() || (input.emptyIsContent && platform::CryptMsgGetContentSize(decoder.message).has_value());
    if (inside && !input.alwaysBeside) return std::nullopt;
    OpenSigned(decoder, input.message, platform::CMSG_DETACHED_FLAG);
    auto data = input.openData();
    const auto size = data->Size();
    if (!decoder.Update(std::move(data))) Raise(decoder);
    return size;
}

}  // namespace

std::shared_ptr<const toolkit::cms::Findings> VerifyMessage(const MessageToVerify& input, SignatureEntries& entries) {
    tessaly::CryptMessageDecode decoder;
    const auto dataSize = Open(decoder, input);
    const auto count = decoder.GetSignerCount();
    if (count == 0) Raise(decoder);
    // Before anybody is judged: content that cannot be read is no reason to call a signature merely unchecked.
    const auto parts = platform::CryptMsgGetSignedParts(decoder.message);
    if (!parts) throw MessageFault(platform::GetLastError());
    ToolkitCheck toolkitCheck(*parts, dataSize, input.emptyIsContent);
    const auto places = CrlPlaces::OfThisProcess();
    const auto own = platform::CertOpenMessageStore(decoder.message);
    for (std::uint32_t index = 0; index < count; ++index) {
        // Finding the certificate and checking the signature are one: of two that fit, the key tells.
        const auto signer = platform::CryptMsgGetAndVerifySigner(decoder.message, index, {own});
        if (!signer) throw MessageFault(platform::GetLastError());
        if (!signer->certificate) throw MessageFault(signer->status);
        auto& entry = entries.emplace_back();
        VerifySigner(decoder, index, *signer, entry, places);
        toolkitCheck.CompleteTimestamp(index, entry);
    }
    return toolkitCheck.Findings();
}

void VerifySignatureFile(const fs::path& signFile, const std::optional<fs::path>& dataFile, SignatureEntries& entries) {
    RequireFile(signFile);
    if (!signFile.has_extension()) throw std::runtime_error("File without extension!!!");
    const auto openData = [&] {
        const auto data = dataFile && !dataFile->empty() ? *dataFile : BesideName(signFile);
        RequireFile(data);
        return OpenSource(data);
    };
    VerifyMessage({.message = OpenSource(signFile), .openData = openData}, entries);
}

}  // namespace verification
