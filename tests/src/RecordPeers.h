#pragma once
// A certificate's record beside what two other programs print of the certificate. Where they differ on purpose, the
// comparison says why.

#include <map>
#include <string>

namespace tests {

// The members by name ("CRL[0]" for the element of a list), in UTF-8, "(absent)" for one that is not there; moments in
// UTC.
using Record = std::map<std::string, std::string>;

// `text` is what these print: openssl x509 -noout -serial -startdate -enddate -dateopt iso_8601 -subject -issuer
// -nameopt utf8,oid,sep_multiline,esc_ctrl,dump_nostr,dump_der -text; certtool -i.
void ExpectAsOpenSslReads(const Record& record, const std::string& text);
void ExpectAsCertToolReads(const Record& record, const std::string& text);

}  // namespace tests
