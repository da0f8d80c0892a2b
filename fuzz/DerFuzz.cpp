// The DER and BER reader over any bytes: every view stays inside what was given, and DER stays what it is.

#include <cstdlib>

#include "units/Der.h"
#include "units/Oid.h"
#include "units/TstInfo.h"

namespace {

void Walk(platform::ByteView bytes, units::DerRules rules) {
    units::DerReader reader(bytes, rules);
    std::size_t seen = 0;
    while (const auto element = reader.Next()) {
        seen += element->encoded.size();
        if (seen > bytes.size() || element->contents.size() > element->encoded.size()) std::abort();
        if (element->tag == units::tag::kOid) (void)units::OidToText(element->contents);
        units::DerReader inner(element->contents, rules);
        while (inner.Next()) {
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const platform::ByteView bytes(data, size);
    Walk(bytes, units::DerRules::der);
    Walk(bytes, units::DerRules::ber);
    if (const auto der = units::ToDer(bytes)) {
        // What was made DER is not changed by a second time.
        if (units::ToDer(*der) != der) std::abort();
    }
    (void)units::ReadTstInfo(bytes);
    return 0;
}
