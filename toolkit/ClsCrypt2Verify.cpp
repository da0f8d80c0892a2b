#include "platform/Files.h"
#include "toolkit/ClsBinData.h"
#include "toolkit/ClsCrypt2.h"
#include "toolkit/ClsJsonObject.h"
#include "toolkit/cms/FindingsJson.h"
#include "toolkit/cms/MessageVerifier.h"
#include "toolkit/cms/TextMessage.h"

namespace toolkit {

namespace {

using platform::Bytes;
using platform::ByteView;

// A message as it came in, decoded if it is text.
class Input {
  public:
    // Null with the reason in the log.
    static std::unique_ptr<platform::ByteSource> Decode(std::unique_ptr<platform::ByteSource> source,
                                                        OperationLog& log) {
        if (source->Size() == 0) {
            log.Line("No input data to verify");
            return nullptr;
        }
        if (!cms::LooksLikeText(*source)) return source;
        log.Line("Input file contains only 7bit bytes, perhaps this is Base64 encoded data?");
        auto decoded = cms::DecodeText(*source);
        if (!decoded) log.Line("Failed to create PKCS7 from DER.");
        return decoded;
    }

    static std::unique_ptr<platform::ByteSource> Open(const std::filesystem::path& path, OperationLog& log) {
        auto file = platform::InputFile::Open(path);
        if (file) return std::make_unique<platform::FileSource>(std::move(*file));
        const auto error = platform::GetLastError();
        log.Line("Failed to open the file.");
        log.Value("path", path.string());
        log.Value("lastError", std::to_string(error));
        return nullptr;
    }

    static std::unique_ptr<platform::ByteSource> OpenMessage(const std::filesystem::path& path, OperationLog& log) {
        auto source = Open(path, log);
        return source ? Decode(std::move(source), log) : nullptr;
    }
};

cms::VerifyOptions OptionsFrom(const std::string& json, const ProgressHandler& progress, const OperationLog& log) {
    cms::VerifyOptions options;
    options.progress = progress;
    // The chain is asked for the log alone: whoever wants no detail does not wait for it.
    options.checkChains = log.verbose;
    if (!json.empty()) {
        ClsJsonObject parsed;
        parsed.Load(json);
        options.validateTimestamps = parsed.BoolOf("ValidateTimestampTokens");
    }
    return options;
}

std::shared_ptr<const cms::Findings> Keep(cms::Findings findings) {
    if (!findings.isSignedData) return nullptr;
    return std::make_shared<const cms::Findings>(std::move(findings));
}

}  // namespace

bool ClsCrypt2::VerifyBytes(ByteView content, ByteView signature) {
    Operation operation(*this, "VerifyBytes");
    lastFindings_.reset();
    if (signature.empty()) {
        operation.Log().Line("Signature is empty");
        return false;
    }
    if (content.empty()) {
        operation.Log().Line("No input data to verify");
        return false;
    }
    platform::MemorySource message(signature), data(content);
    lastFindings_ =
        Keep(cms::VerifyDetached(message, data, OptionsFrom(cmsOptions_, progress_, operation.Log()), operation.Log()));
    return operation.Finish(lastFindings_ && lastFindings_->valid);
}

bool ClsCrypt2::VerifyOpaque(Operation& operation, ByteView message, Bytes& content) {
    lastFindings_.reset();
    auto& log = operation.Log();
    const auto source = Input::Decode(std::make_unique<platform::MemorySource>(message), log);
    if (!source) return false;
    const auto options = OptionsFrom(cmsOptions_, progress_, log);
    lastFindings_ = Keep(cms::VerifyAttached(*source, options, log, [&](ByteView piece) {
        content.insert(content.end(), piece.begin(), piece.end());
        return true;
    }));
    return lastFindings_ && lastFindings_->valid;
}

bool ClsCrypt2::OpaqueVerifyBd(ClsBinData& data) {
    Operation operation(*this, "OpaqueVerifyBd");
    Bytes content;
    if (!VerifyOpaque(operation, data.Content(), content)) return false;
    data.Replace(std::move(content));
    return operation.Finish(true);
}

bool ClsCrypt2::VerifyP7M(const std::filesystem::path& input, const std::filesystem::path& output) {
    Operation operation(*this, "VerifyP7M");
    lastFindings_.reset();
    auto& log = operation.Log();
    const auto source = Input::OpenMessage(input, log);
    if (!source) return false;
    // Without its name until the verdict: a crash, a full disk and a bad signature leave nothing.
    auto file = platform::OutputFile::Create(output);
    if (!file) {
        log.Line("Failed to create the output file.");
        log.Value("lastError", std::to_string(platform::GetLastError()));
        return false;
    }
    lastFindings_ = Keep(cms::VerifyAttached(*source, OptionsFrom(cmsOptions_, progress_, log), log,
                                             [&](ByteView piece) { return file->Write(piece); }));
    if (!lastFindings_ || !lastFindings_->valid) return false;
    if (!file->Commit()) {
        log.Line("Failed to write the output file.");
        log.Value("lastError", std::to_string(platform::GetLastError()));
        return false;
    }
    return operation.Finish(true);
}

bool ClsCrypt2::VerifyFile(const std::filesystem::path& input) {
    Operation operation(*this, "VerifyFile");
    lastFindings_.reset();
    auto& log = operation.Log();
    const auto source = Input::OpenMessage(input, log);
    if (!source) return false;
    lastFindings_ = Keep(cms::VerifyAttached(*source, OptionsFrom(cmsOptions_, progress_, log), log));
    return operation.Finish(lastFindings_ && lastFindings_->valid);
}

bool ClsCrypt2::VerifyDetachedFile(const std::filesystem::path& content, const std::filesystem::path& signature) {
    Operation operation(*this, "VerifyDetachedFile");
    lastFindings_.reset();
    auto& log = operation.Log();
    const auto message = Input::Open(signature, log);
    const auto data = Input::Open(content, log);
    if (!message || !data) return false;
    if (message->Size() == 0) {
        log.Line("Signature is empty");
        return false;
    }
    const auto decoded = cms::LooksLikeText(*message) ? cms::DecodeText(*message) : nullptr;
    lastFindings_ =
        Keep(cms::VerifyDetached(decoded ? *decoded : *message, *data, OptionsFrom(cmsOptions_, progress_, log), log));
    return operation.Finish(lastFindings_ && lastFindings_->valid);
}

bool ClsCrypt2::VerifyDigested(const cms::DigestedMessage& message) {
    Operation operation(*this, message.detached ? "VerifyBytes" : "OpaqueVerifyBd");
    lastFindings_.reset();
    auto& log = operation.Log();
    lastFindings_ = Keep(cms::VerifyDigested(message, OptionsFrom(cmsOptions_, progress_, log), log));
    return operation.Finish(lastFindings_ && lastFindings_->valid);
}

std::unique_ptr<ClsJsonObject> ClsCrypt2::LastJsonData() const {
    const auto findings = LastFindings();
    if (!findings) return nullptr;
    auto json = std::make_unique<ClsJsonObject>();
    json->Load(cms::ToJson(*findings));
    return json;
}

std::shared_ptr<const cms::Findings> ClsCrypt2::LastFindings() const {
    const auto lock = Lock();
    return lastFindings_;
}

}  // namespace toolkit
