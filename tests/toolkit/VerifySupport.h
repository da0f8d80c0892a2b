#pragma once
// What the tests of verification share.

#include <filesystem>
#include <string>

#include "platform/Files.h"
#include "toolkit/cms/MessageVerifier.h"
#include "toolkit/cms/TextMessage.h"

namespace testing_support {

struct Verdict {
    bool valid = false;
    std::string log;
    toolkit::cms::Findings findings;
    platform::Bytes content;  // what went out, valid or not
};

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
    verdict.valid = verdict.findings.valid;
    verdict.log = log.Text();
    return verdict;
}

inline platform::Bytes ReadFile(const std::filesystem::path& path) {
    return platform::ReadWholeFile(path).value_or(platform::Bytes{});
}

inline std::filesystem::path Corpora() {
    return std::filesystem::path(NORVIK_SOURCE_DIR).parent_path() / "shared" / "corpora";
}

}  // namespace testing_support
