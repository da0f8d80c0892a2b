// The DER and BER reader over any bytes: every view stays inside what was given, and DER stays what it is.

#include <cstdlib>

#include "platform/formats/Der.h"
#include "platform/formats/Oid.h"
#include "platform/formats/TstInfo.h"

namespace {

void Walk(platform::ByteView bytes, platform::DerRules rules) {
    platform::DerReader reader(bytes, rules);
    std::size_t seen = 0;
    while (const auto element = reader.Next()) {
        seen += element->encoded.size();
        if (seen > bytes.size() || element->contents.size() > element->encoded.size()) std::abort();
        if (element->tag == platform::tag::kOid) (void)platform::OidToText(element->contents);
        platform::DerReader inner(element->contents, rules);
        while (inner.Next()) {
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const platform::ByteView bytes(data, size);
    Walk(bytes, platform::DerRules::der);
    Walk(bytes, platform::DerRules::ber);
    if (const auto der = platform::ToDer(bytes)) {
        // What was made DER is not changed by a second time.
        if (platform::ToDer(*der) != der) std::abort();
    }
    (void)platform::ReadTstInfo(bytes);
    return 0;
}
