#include "toolkit/cms/TimestampRequest.h"

#include "platform/System.h"
#include "platform/formats/DerWriter.h"

namespace toolkit::cms {

using platform::Bytes;

Bytes EncodeTimestampRequest(const TimestampRequest& request) {
    platform::DerWriter out;
    out.Sequence([&] {
        out.Integer(1);
        out.Sequence([&] {
            out.AlgorithmWithNull(platform::OidOf(request.hash));
            out.OctetString(request.imprint);
        });
        if (!request.policyOid.empty()) out.Oid(request.policyOid);
        if (!request.nonce.empty()) out.UnsignedInteger(request.nonce);
        out.Boolean(request.certReq);
    });
    return out.Valid() ? out.Take() : Bytes();
}

Bytes MakeTimestampNonce() {
    Bytes nonce(12);
    // A first byte of zero would have to go again in an INTEGER of minimal length; such a draw is one in 128.
    while (nonce.front() == 0) {
        if (!platform::BCryptGenRandom(nonce)) return {};
        nonce.front() &= 0x7F;
    }
    return nonce;
}

}  // namespace toolkit::cms
