#include "toolkit/cms/MessageVerifier.h"

#include <algorithm>

#include "platform/Chains.h"
#include "toolkit/cms/AttributeNames.h"
#include "toolkit/cms/Message.h"
#include "toolkit/cms/MessageVerification.h"
#include "toolkit/cms/Names.h"
#include "toolkit/cms/TimestampVerifier.h"

namespace toolkit::cms {

namespace {

using platform::Bytes;
using platform::ByteView;

// More than any real message has; a hostile one could keep us busy for hours.
constexpr std::size_t kMostSigners = 1024;
constexpr std::size_t kMostCertificates = 4096;

// Digests the content as it goes by and passes it on.
class ContentPass final : public ContentReceiver {
  public:
    ContentPass(const MessageSetting& setting, OperationLog& log) : setting_(setting), log_(log) {}

    bool Start(const SignedDataMessage& head) override {
        if (setting_.digested != nullptr) digests_ = setting_.digested->digests;
        for (const auto& algorithm : head.digestAlgorithms) {
            const auto hash = platform::HashFromOid(algorithm.oid);
            if (hash && digests_.Want(*hash)) continue;
            log_.Line("Unsupported PKCS7 digest algorithm.");
            log_.Value("oid", algorithm.oid);
        }
        return setting_.detachedContent == nullptr;
    }

    bool Take(ByteView piece) override {
        digests_.Update(piece);
        if (setting_.sink && !setting_.sink(piece)) return false;
        done_ += piece.size();
        if (setting_.options.progress) setting_.options.progress(done_, setting_.message.Size());
        return true;
    }

    // Digests content that stands beside the message.
    bool ReadDetached() {
        auto& source = *setting_.detachedContent;
        for (std::uint64_t offset = 0; offset < source.Size();) {
            const auto piece = source.View(offset, 1, source.Size());
            if (!piece || piece->empty()) return false;
            digests_.Update(*piece);
            offset += piece->size();
            if (setting_.options.progress) setting_.options.progress(offset, source.Size());
        }
        digests_.Finish();
        return true;
    }

    ContentDigests& Digests() { return digests_; }

  private:
    const MessageSetting& setting_;
    OperationLog& log_;
    ContentDigests digests_;
    std::uint64_t done_ = 0;
};

class Verification {
  public:
    Verification(const MessageSetting& setting, OperationLog& log)
        : setting_(setting), log_(log), pass_(setting, log) {}

    MessageOutcome Run() {
        outcome_.kind = Read();
        if (outcome_.kind == MessageKind::signedData) outcome_.findings.valid = Judge();
        return std::move(outcome_);
    }

  private:
    MessageKind Read();
    bool Judge();
    bool ReadContent();
    bool DigestUnlisted(const std::vector<SignerInfo>& signers);
    void ReadCertificates();
    bool CheckSigners(const std::vector<SignerInfo>& signers);
    bool CheckTimestamps(const SignerInfo& signer, SignerFindings& findings);
    void DescribeAttributes(const SignerInfo& signer, SignerFindings& findings);
    void CheckChains();

    const MessageSetting& setting_;
    OperationLog& log_;
    ContentPass pass_;
    SignedDataMessage message_;
    CertificatePool pool_;  // of the message itself first
    std::size_t own_ = 0;   // how many of them are the message's
    MessageOutcome outcome_;
};

MessageKind Verification::Read() {
    if (setting_.digested != nullptr) {
        message_ = setting_.digested->message;
        pass_.Start(message_);
        return MessageKind::signedData;
    }
    switch (ReadSignedData(setting_.message, pass_, message_)) {
        case ReadOutcome::ok:
            return MessageKind::signedData;
        case ReadOutcome::notSignedData:
            return MessageKind::otherMessage;
        case ReadOutcome::malformed:
            break;
        case ReadOutcome::readFault:
            log_.Line("The input could not be read.");
            log_.Value("lastError", std::to_string(platform::GetLastError()));
            break;
        case ReadOutcome::stopped:
            log_.Line("The content could not be written.");
            break;
        case ReadOutcome::tooLarge:
            log_.Line("The certificates or signers of the message are larger than is accepted.");
            break;
    }
    log_.Line("Failed to create PKCS7 from DER.");
    return MessageKind::unreadable;
}

bool Verification::ReadContent() {
    if (setting_.detachedContent != nullptr || (setting_.digested != nullptr && setting_.digested->detached)) {
        if (message_.content) log_.Detail("note", "the message holds content too, which is not looked at");
        if (setting_.digested != nullptr || pass_.ReadDetached()) return true;
        log_.Line("The content could not be read.");
        return false;
    }
    if (!message_.content) {
        log_.Line("The message holds no content: it is a detached signature.");
        return false;
    }
    if (!message_.content->octetString && message_.contentType == oid::kData) {
        log_.Line("The content is no OCTET STRING.");
        return false;
    }
    if (setting_.digested == nullptr) pass_.Digests().Finish();
    return true;
}

bool Verification::Judge() {
    auto& findings = outcome_.findings;
    findings.isSignedData = true;
    for (const auto& algorithm : message_.digestAlgorithms) {
        findings.digestAlgorithms.push_back(DigestName(algorithm.oid));
    }
    findings.useConstructedOctets = message_.content && message_.content->constructed;
    findings.omitAlgorithmIdNull =
        !message_.digestAlgorithms.empty() && message_.digestAlgorithms.front().parameters.empty();
    findings.contentType = message_.contentType;
    if (message_.trailing != 0) log_.Value("paddingBehindMessage", std::to_string(message_.trailing));
    ReadCertificates();
    const auto signers = ReadSignerInfos(message_.signerInfos);
    if (!signers || signers->size() > kMostSigners) {
        log_.Line("Failed to create PKCS7 from DER.");
        log_.Line(signers ? "The message has more signers than are accepted." : "A SignerInfo does not decode.");
        return false;
    }
    if (signers->empty()) log_.Line("The message has no signers.");
    const bool readable = ReadContent() && DigestUnlisted(*signers);
    findings.contentDigests = pass_.Digests().All();
    if (!readable) return false;
    return CheckSigners(*signers);
}

// A signer may use a digest that the message did not announce: then the content is read once more.
bool Verification::DigestUnlisted(const std::vector<SignerInfo>& signers) {
    if (setting_.digested != nullptr) return true;
    auto& digests = pass_.Digests();
    bool again = false;
    for (const auto& signer : signers) {
        const auto hash = platform::HashFromOid(signer.digestAlgorithm.oid);
        if (hash && !digests.Knows(*hash) && digests.Want(*hash)) again = true;
    }
    if (!again) return true;
    log_.Detail("note", "a signer's digest algorithm is not among those of the message");
    if (setting_.detachedContent != nullptr) return pass_.ReadDetached();
    const auto outcome = ReadContentAgain(setting_.message, *message_.content, [&](ByteView piece) {
        digests.Update(piece);
        return true;
    });
    digests.Finish();
    return outcome == ReadOutcome::ok;
}

void Verification::ReadCertificates() {
    platform::DerReader reader(message_.certificates, platform::DerRules::ber);
    while (!reader.AtEnd() && pool_.size() < kMostCertificates) {
        const auto element = reader.Next();
        if (!element) break;
        // Attribute certificates and other formats stand under tags of their own.
        if (element->tag != platform::tag::kSequence) continue;
        auto certificate = platform::CertCreateCertificateContext(element->encoded);
        if (!certificate) {
            log_.Line("A certificate of the message does not decode.");
            continue;
        }
        outcome_.findings.certificates.push_back(
            {CommonNameOf(certificate.Info().Issuer), SerialHex(SerialOf(certificate))});
        pool_.push_back(std::move(certificate));
    }
    own_ = pool_.size();
    if (setting_.outerPool != nullptr) {
        pool_.insert(pool_.end(), setting_.outerPool->begin(), setting_.outerPool->end());
    }
}

bool Verification::CheckSigners(const std::vector<SignerInfo>& signers) {
    auto& all = outcome_.findings.signers;
    bool digestsMatch = true;
    for (const auto& signer : signers) {
        auto& findings = all.emplace_back(DescribeSigner(signer));
        DescribeAttributes(signer, findings);
        CheckDigest(signer, pass_.Digests(), findings, log_);
        digestsMatch = digestsMatch && findings.digestMatches;
    }
    if (!digestsMatch) log_.Line("One more more digests did not match.");
    bool timestampsGood = true;
    for (std::size_t i = 0; i < signers.size(); ++i) {
        const auto context = log_.Enter("signer");
        CheckSigner(signers[i], message_.contentType, pass_.Digests(), pool_, all[i], log_);
        if (!CheckTimestamps(signers[i], all[i])) timestampsGood = false;
    }
    const bool passed = !all.empty() && std::all_of(all.begin(), all.end(), [](const auto& one) { return one.passed; });
    if (passed && setting_.options.checkChains) CheckChains();
    return passed && (timestampsGood || !setting_.options.validateTimestamps);
}

void Verification::DescribeAttributes(const SignerInfo& signer, SignerFindings& findings) {
    for (const auto& attribute : signer.signedAttributes) {
        auto& described = findings.signedAttributes.emplace_back(DescribeAttribute(attribute));
        if (described.members.empty()) continue;
        if (attribute.oid == oid::kContentType) findings.contentType = described.members.front().second;
        if (attribute.oid == oid::kMessageDigest) findings.messageDigest = described.members.front().second;
    }
    for (const auto& attribute : signer.unsignedAttributes) {
        findings.unsignedAttributes.push_back(DescribeAttribute(attribute));
    }
}

bool Verification::CheckTimestamps(const SignerInfo& signer, SignerFindings& findings) {
    if (setting_.outerPool != nullptr) return true;
    bool good = true;
    for (std::size_t i = 0; i < signer.unsignedAttributes.size(); ++i) {
        const auto& attribute = signer.unsignedAttributes[i];
        if (attribute.oid != oid::kTimestampToken) continue;
        if (attribute.values.empty()) good = false;
        for (const auto& value : attribute.values) {
            const auto context = log_.Enter("timestampToken");
            auto& tokens = findings.unsignedAttributes[i].timestamps;
            tokens.push_back(VerifyTimestamp(value.encoded, signer.signature, pool_, log_));
            good = good && tokens.back().validated;
        }
    }
    return good;
}

// For the log alone. Tokens and the network are no place to look for issuers here: starting a card reader or asking a
// server would cost more than the note is worth. The host's list of trust anchors, which takes longer to read than a
// small message to verify, is opened for those alone whose root lies in no folder.
void Verification::CheckChains() {
    using platform::CertOpenSystemStoreAt;
    using platform::StoreLocation;
    const auto additional = platform::CertOpenMemoryStore();
    for (std::size_t i = 0; i < own_; ++i) {
        platform::CertAddCertificateContextToStore(additional, pool_[i], platform::CERT_STORE_ADD_ALWAYS);
    }
    platform::ChainEngine folders;
    folders.roots = {CertOpenSystemStoreAt(StoreLocation::currentUser, u"ROOT", false),
                     CertOpenSystemStoreAt(StoreLocation::localMachine, u"ROOT", false)};
    folders.intermediates = {additional, platform::CertOpenSystemStoreW(u"CA")};
    platform::ChainEngine all = folders;
    all.roots.push_back(platform::CertOpenHostStore(u"ROOT"));
    const auto isTrusted = [](const platform::CertificateContext& signer, const platform::ChainEngine& engine) {
        platform::ChainParameters parameters;
        parameters.engine = &engine;
        parameters.network.allowed = false;
        const auto chain = platform::CertGetCertificateChain(signer, parameters);
        return chain && platform::CertVerifyCertificateChainPolicy(*chain) == 0;
    };
    bool trusted = true;
    for (const auto& signer : outcome_.findings.signers) {
        trusted = trusted && (isTrusted(signer.certificate, folders) || isTrusted(signer.certificate, all));
    }
    log_.Line(trusted ? "Signing certificates verified." : "Signing certificate(s) not verified.");
}

}  // namespace

MessageOutcome VerifyMessage(const MessageSetting& setting, OperationLog& log) {
    return Verification(setting, log).Run();
}

namespace {

Findings FindingsOf(MessageOutcome outcome, std::string_view form, OperationLog& log) {
    if (outcome.kind == MessageKind::otherMessage) {
        log.Line("Cannot verify " + std::string(form) + " signature -- not a PKCS7 SignedData object.");
    }
    return std::move(outcome.findings);
}

constexpr std::string_view kOpaque = "opaque", kDetached = "detached";
const ContentSink kNobody;

}  // namespace

Findings VerifyAttached(platform::ByteSource& message, const VerifyOptions& options, OperationLog& log,
                        const ContentSink& sink) {
    return FindingsOf(VerifyMessage({.message = message, .options = options, .sink = sink}, log), kOpaque, log);
}

Findings VerifyDetached(platform::ByteSource& message, platform::ByteSource& content, const VerifyOptions& options,
                        OperationLog& log) {
    const MessageSetting setting{.message = message, .detachedContent = &content, .options = options, .sink = kNobody};
    return FindingsOf(VerifyMessage(setting, log), kDetached, log);
}

Findings VerifyDigested(const DigestedMessage& digested, const VerifyOptions& options, OperationLog& log) {
    platform::MemorySource nothing({});
    const MessageSetting setting{.message = nothing, .options = options, .sink = kNobody, .digested = &digested};
    return std::move(VerifyMessage(setting, log).findings);
}

}  // namespace toolkit::cms
