#pragma once
// What a message brings along about its certificates in other places than certificates and crls.

#include <string_view>
#include <vector>

#include "platform/cms/SignerInfo.h"

namespace platform::posix {

// Views into the message; OCSP answers as OCSPResponse (RFC 6960), whatever form they had.
struct MessageProof {
    std::vector<ByteView> certificates, crls;
    std::vector<Bytes> ocspAnswers;

    // An OtherRevocationInfoFormat with an OCSP response (RFC 5940, 2). Other formats are left out.
    void AddOtherInfo(ByteView info);
    // A signer's certificate-values and revocation-values (RFC 5126, 6.3.3 and 6.3.4), as far as they decode.
    void AddAttributes(const cms::Attributes& unsignedAttributes);

  private:
    void AddRevocationValues(ByteView values);
    void AddOcsp(Bytes answer);
};

}  // namespace platform::posix
