#pragma once
// What the tests of verification share.

#include <gtest/gtest.h>

#include "platform/Messages.h"
#include "toolkit/cms/MessageVerifier.h"
#include "toolkit/cms/TextMessage.h"

namespace testing_support {

struct Verdict {
    bool valid = false;
    std::string log;
    toolkit::cms::Findings findings;
    platform::Bytes content;                         // what went out, valid or not
    std::vector<platform::ErrorCode> serviceStatus;  // of each signer, by the host's message service
};

// The host's message service must come to the same verdict on every signer, whatever the message. Where the signer's
// name is damaged one of the two may still recognise the certificate and the other not.
inline void AskMessageService(platform::ByteSource& binary, const platform::Bytes* detachedContent, Verdict& verdict) {
    const auto flags = detachedContent != nullptr ? platform::CMSG_DETACHED_FLAG : 0U;
    const auto message = platform::CryptMsgOpenToDecode(platform::PKCS_7_ASN_ENCODING, flags);
    const auto bytes = binary.Copy(0, static_cast<std::size_t>(binary.Size()));
    const bool read = bytes && platform::CryptMsgUpdate(message, *bytes, true) &&
                      (detachedContent == nullptr || platform::CryptMsgUpdate(message, *detachedContent, true));
    if (!read) {
        EXPECT_FALSE(verdict.findings.valid) << "refused by the message service: " << platform::GetLastError();
        return;
    }
    const std::vector stores = {platform::CertOpenMessageStore(message)};
    for (const auto& finding : verdict.findings.signers) {
        const auto index = static_cast<std::uint32_t>(verdict.serviceStatus.size());
        const auto signer = platform::CryptMsgGetAndVerifySigner(message, index, stores);
        const auto status = verdict.serviceStatus.emplace_back(signer ? signer->status : platform::GetLastError());
        if (!signer || !signer->certificate || !finding.certificate) continue;
        EXPECT_EQ(status == platform::ERROR_SUCCESS, finding.passed) << "signer " << index << ": " << status;
    }
}

inline Verdict Verify(platform::ByteView message, const toolkit::cms::VerifyOptions& options = {},
                      const platform::Bytes* detachedContent = nullptr) {
    toolkit::OperationLog log;
    Verdict verdict;
    platform::MemorySource source(message);
    std::unique_ptr<platform::ByteSource> decoded;
    if (toolkit::cms::LooksLikeText(source)) decoded = toolkit::cms::DecodeText(source);
    platform::ByteSource& binary = decoded ? *decoded : source;
    if (detachedContent != nullptr) {
        platform::MemorySource content(*detachedContent);
        verdict.findings = toolkit::cms::VerifyDetached(binary, content, options, log);
    } else {
        verdict.findings = toolkit::cms::VerifyAttached(binary, options, log, [&](platform::ByteView piece) {
            verdict.content.insert(verdict.content.end(), piece.begin(), piece.end());
            return true;
        });
    }
    AskMessageService(binary, detachedContent, verdict);
    verdict.valid = verdict.findings.valid;
    verdict.log = log.Text();
    return verdict;
}

}  // namespace testing_support
