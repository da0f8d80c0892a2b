#pragma once
// Where a chain finds issuers, trust, distrust and CRLs.

#include <functional>
#include <map>
#include <vector>

#include "platform/Chains.h"
#include "platform/posix/Native.h"

namespace platform::posix {

// Stores in tiers: the next one is opened only when those before it did not lead to a good path, so that nobody pays
// for a card reader's start-up or the host's trust anchors whose own folders have the answer. Lives for one question;
// not for several threads.
class ChainSources {
  public:
    // For a verdict: the certificate's own store, the additional store, CA and ROOT; MY and all others; the host's
    // trust anchors; tokens. An engine's values replace the system's stores.
    ChainSources(const CertificateContext& leaf, const ChainParameters& parameters);
    // For embedding: the same from the eight stores that certificates of a signer's path lie in.
    explicit ChainSources(const CertificateContext& leaf);

    // False if there is no further tier. `incomplete`: no path has reached a self-signed or trusted certificate yet;
    // tokens are asked for nothing less.
    bool OpenNextTier(bool incomplete);

    // Certificates named as this one's issuer, each once, wherever they lie. The signature is not looked at.
    [[nodiscard]] const std::vector<CertificateContext>& IssuersOf(const CertificateContext& certificate);
    // The same for a Name in DER.
    [[nodiscard]] const std::vector<CertificateContext>& CertificatesNamed(ByteView name);
    // For this question, as intermediates. False if all of them were known.
    bool AddIntermediates(const std::vector<CertificateContext>& certificates);
    [[nodiscard]] bool IsTrusted(const CertificateContext& certificate) const;
    // By issuer, serial number and key: the same certificate with a signature value written in another way stays
    // distrusted, and a root that was issued anew under its old number does not become so.
    [[nodiscard]] bool IsDistrusted(const CertificateContext& certificate) const;
    [[nodiscard]] const std::vector<CrlContext>& Crls();
    // OCSPResponses in DER that came along with the certificate in a message.
    [[nodiscard]] const std::vector<Bytes>& OcspAnswers() const { return ocspAnswers_; }
    // The message's certificates, if there are such answers.
    [[nodiscard]] std::vector<CertificateContext> MessageCertificates() const;
    // For this question, beside those of the stores.
    void AddCrl(const CrlContext& crl);

  private:
    struct Tier {
        std::function<void(ChainSources&)> open;
        bool tokens = false;
    };
    void AddRootsAndIntermediates(bool rootsAreTrusted);
    void AddOwnStores(const CertificateContext& leaf, const CertStore& additional);
    void AddHostTiers(bool rootsAreTrusted);
    void AddFolders(std::u16string_view name, std::vector<CertStore>& stores);
    const std::vector<CertificateContext>& Find(ByteView name, const std::function<std::u16string()>& canonicalName);

    // Most machines have none: one question instead of one for each store.
    const bool machineHasStores_ = HasStores(StoreLocation::localMachine);
    std::vector<CertStore> issuers_, roots_, distrusted_, crlStores_;
    CertStore message_;                                                    // null without OCSP answers in it
    CertStore added_;                                                      // among the issuers, once there are any
    std::map<std::u16string, std::vector<CertStore>> folders_;             // opened already, by name
    std::vector<Tier> tiers_;                                              // those that are not open yet
    std::map<std::string, std::vector<CertificateContext>> foundIssuers_;  // by the name in DER
    std::function<void(ChainSources&)> openCrlStores_;
    std::optional<std::vector<CrlContext>> crls_;
    std::vector<Bytes> ocspAnswers_;
};

// Whether TrustSystemRoots lets the system's ROOT stores count.
bool SystemRootsAreTrusted();

}  // namespace platform::posix
