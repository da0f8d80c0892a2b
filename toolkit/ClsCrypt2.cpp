#include "toolkit/ClsCrypt2.h"

#include "toolkit/cms/SignatureMaker.h"

namespace toolkit {

void ClsCrypt2::SetHashAlgorithm(std::string_view name) {
    const auto lock = Lock();
    hashAlgorithm_ = name;
}

void ClsCrypt2::SetCadesEnabled(bool on) {
    const auto lock = Lock();
    cadesEnabled_ = on;
}

void ClsCrypt2::SetIncludeCertChain(bool on) {
    const auto lock = Lock();
    includeCertChain_ = on;
}

void ClsCrypt2::SetSigningAttributes(std::string_view json) {
    const auto lock = Lock();
    signingAttributes_ = json;
}

void ClsCrypt2::SetCmsOptions(std::string_view json) {
    const auto lock = Lock();
    cmsOptions_ = json;
}

void ClsCrypt2::SetDerOrder(bool on) {
    const auto lock = Lock();
    derOrder_ = on;
}

void ClsCrypt2::SetProgress(ProgressHandler handler) {
    const auto lock = Lock();
    progress_ = std::move(handler);
}

bool ClsCrypt2::SetSigningCert(const platform::CertificateContext& certificate) {
    Operation operation(*this, "SetSigningCert");
    signers_.clear();
    if (!certificate) {
        operation.Log().Line("No certificate is loaded.");
        return false;
    }
    signers_.push_back(certificate);
    return operation.Finish(true);
}

void ClsCrypt2::SetTsaHttp(std::shared_ptr<ClsHttp> http) {
    const auto lock = Lock();
    tsaHttp_ = std::move(http);
}

bool ClsCrypt2::CreateP7M(const std::filesystem::path& input, const std::filesystem::path& output) {
    Operation operation(*this, "CreateP7M");
    return operation.Finish(CreateSignature(operation, input, output, true));
}

bool ClsCrypt2::CreateP7S(const std::filesystem::path& input, const std::filesystem::path& output) {
    Operation operation(*this, "CreateP7S");
    return operation.Finish(CreateSignature(operation, input, output, false));
}

bool ClsCrypt2::CreateSignature(Operation& operation, const std::filesystem::path& input,
                                const std::filesystem::path& output, bool attached) try {
    OperationLog& log = operation.Log();
    log.Detail("inputPath", input.string());
    log.Detail("outputPath", output.string());
    log.Detail("hashAlgorithm", hashAlgorithm_);
    if (signers_.empty()) {
        log.Line("No signing certificate(s) has been set.");
        return false;
    }
    const auto hash = cms::SigningHash(hashAlgorithm_);
    if (!hash) {
        log.Line("Signatures are made with sha1, sha256, sha384 or sha512 only.");
        log.Value("hashAlgorithm", hashAlgorithm_);
        return false;
    }
    cms::SignatureRequest request{.signer = signers_.front(),
                                  .hash = *hash,
                                  .options = cms::ReadSigningOptions(signingAttributes_),
                                  .includeChain = includeCertChain_,
                                  .derOrder = derOrder_,
                                  .http = tsaHttp_.get(),
                                  .progress = progress_};
    if (cadesEnabled_) request.options.attributes.signingCertificateV2 = true;
    return cms::SignatureMaker(request, log).Make(input, output, attached);
} catch (const std::exception& fault) {  // out of memory, above all: callers of this layer do not expect exceptions
    operation.Log().Value("exception", fault.what());
    return false;
}

}  // namespace toolkit
