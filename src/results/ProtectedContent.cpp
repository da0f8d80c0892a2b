#include "src/results/ProtectedContent.h"

#include <algorithm>

#include "crypt/CommonClass.h"
#include "platform/Files.h"
#include "platform/Text.h"
#include "src/Norvik.h"
#include "toolkit/CkCrypt2W.h"

namespace results {
namespace {

namespace fs = std::filesystem;

// Relative paths are the caller's, and the current folder may change while a window is open.
fs::path Absolute(const fs::path& path) {
    std::error_code error;
    auto absolute = fs::absolute(path, error);
    return error || path.empty() ? path : absolute;
}

std::string LowerAscii(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

void LogLastError() {
    LogError(tessaly::FormatErrorText(platform::GetLastError()));
}

bool TakeOut(const fs::path& signFile, const fs::path& target, const ProtectedContent::Progress& progress) {
    toolkit::CkCrypt2W crypt;
    crypt.put_VerboseLogging(true);
    crypt.SetProgress(progress);
    if (crypt.Implementation().VerifyP7M(signFile, target)) return true;
    const auto error = platform::GetLastError();
    LogError(crypt.lastErrorText());
    platform::SetLastError(error);
    return false;
}

bool Copy(const fs::path& source, const fs::path& target, const ProtectedContent::Progress& progress) {
    const auto input = platform::InputFile::Open(source);
    if (!input) return false;
    auto output = platform::OutputFile::Create(target);
    if (!output) return false;
    platform::Bytes piece(1 << 20);
    for (std::uint64_t at = 0;;) {
        const auto count = input->ReadAt(at, piece);
        if (!count) return false;
        if (*count == 0) return output->Commit();
        if (!output->Write(platform::ByteView(piece).first(*count))) return false;
        at += *count;
        if (progress) progress(at, input->Size());
    }
}

}  // namespace

ProtectedContent::ProtectedContent(const fs::path& signFile, const fs::path& dataFile, const fs::path& workFolder)
    : signFile_(Absolute(signFile)), hasFolder_(!workFolder.empty()) {
    constexpr std::string_view mark = ".p7s";
    const auto lower = LowerAscii(signFile_.string());
    const auto at = lower.find(mark);
    const bool atEnd = lower.ends_with(mark);
    detached_ = at != std::string::npos && !(atEnd && dataFile.empty());
    if (!detached_)
        path_ = workFolder / signFile_.stem();
    else if (atEnd)
        path_ = Absolute(dataFile);
    else
        path_ = signFile_.string().substr(0, at);
}

bool ProtectedContent::Extract(const Progress& progress) {
    if (!hasFolder_) return false;
    extracted_ = TakeOut(signFile_, path_, progress);
    if (!extracted_) LogLastError();
    std::error_code ignored;
    if (extracted_)
        fs::permissions(path_, fs::perms::owner_read | fs::perms::owner_write, ignored);
    else if (fs::is_regular_file(fs::symlink_status(path_, ignored)))
        fs::remove(path_, ignored);  // of an earlier signature with this name
    return extracted_;
}

// Over the signature, its content would be all that is left of it.
bool ProtectedContent::SaveTo(const fs::path& target, const Progress& progress) const {
    std::error_code error;
    if (fs::equivalent(target, signFile_, error) || (detached_ && fs::equivalent(target, path_, error))) {
        LogError(u"The content would replace its source: " + platform::ToWide(target.string()));
        return false;
    }
    if (!detached_) return TakeOut(signFile_, target, progress);
    if (Copy(path_, target, progress)) return true;
    LogLastError();
    return false;
}

}  // namespace results
