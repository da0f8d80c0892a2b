#pragma once
// Issuers that no store has, fetched from where the certificate says that they are (caIssuers, RFC 5280, 4.2.2.1).

#include "platform/posix/AnswerCache.h"
#include "platform/posix/ChainSources.h"
#include "platform/posix/Exchanges.h"

namespace platform::posix {

// For one question. What is fetched is an intermediate at most: nothing becomes trusted by lying at an address.
class IssuerSearch {
  public:
    IssuerSearch(ChainSources& sources, Exchanges& exchanges) : sources_(sources), exchanges_(exchanges) {}

    // Looks for who issued this certificate and adds it, with what came along, to the sources: a certificate in DER or
    // PEM, or a PKCS#7 bundle. False if nothing new was found.
    bool FindIssuerOf(const CertificateContext& certificate);

  private:
    bool Take(const CertificateContext& certificate, ByteView answer);

    ChainSources& sources_;
    Exchanges& exchanges_;
    AnswerCache cache_;
    unsigned rounds_ = 0;
};

}  // namespace platform::posix
