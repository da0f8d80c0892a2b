#pragma once

#include "platform/Certificates.h"

namespace certificates {

// Whether a certificate that a person picked may be used: its CRLs are asked, and one that nobody could tell about
// counts as good. Anything else is told to the person, with the reason, and refused.
bool AcceptsChoice(const platform::CertificateContext& certificate);

}  // namespace certificates
