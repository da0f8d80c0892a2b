#pragma once
// A certificate's record beside what another program prints of the certificate. Where they differ on purpose, the
// comparison says why.

#include <map>
#include <string>

namespace tests {

// The members by name ("CRL[0]" for the element of a list), in UTF-8, "(absent)" for one that is not there; moments in
// UTC.
using Record = std::map<std::string, std::string>;

// `text` is what this prints: openssl x509 -noout -serial -startdate -enddate -dateopt iso_8601 -subject -issuer
// -nameopt utf8,oid,sep_multiline,esc_ctrl,dump_nostr,dump_der -text.
void ExpectAsOpenSslReads(const Record& record, const std::string& text);

}  // namespace tests
