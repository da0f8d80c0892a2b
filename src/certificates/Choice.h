#pragma once
// What happens between the picking of a certificate and its use: the check for revocation and what it decides.

#include <vector>

#include "crypt/CryptCertificate.h"
#include "crypt/CryptStore.h"
#include "crypt/Status.h"

namespace certificates {

// What a person is offered of a store: the certificates valid now, in the reverse of the store's order.
std::vector<tessaly::CryptCertificate> OfferedCertificates(const tessaly::CryptStore& store);

// The certificate's revocation by the CRLs that it names, which are fetched. An unknown error before the library's
// start; throws std::runtime_error where the network library does not start.
tessaly::CertStatusResult CheckChoice(const platform::CertificateContext& certificate);

// Whether a certificate with this answer counts as chosen. One whose status cannot be found out does: signing must be
// possible without a network, and whoever verifies checks again.
bool LetsPass(const tessaly::CertStatusResult& answer);

// Both in one: what is refused is told to the person, with the reason.
bool AcceptsChoice(const platform::CertificateContext& certificate);

}  // namespace certificates
