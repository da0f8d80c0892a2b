#include "tests/src/RecordPeers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iomanip>
#include <set>
#include <sstream>
#include <vector>

namespace tests {
namespace {

std::string Between(const std::string& text, const std::string& from, const std::string& to) {
    const auto start = text.find(from);
    if (start == std::string::npos) return "(absent)";
    const auto begin = start + from.size();
    return text.substr(begin, text.find(to, begin) - begin);
}

std::string Digits(const std::string& text) {
    std::string digits;
    for (const char c : text)
        if (std::isxdigit(static_cast<unsigned char>(c)) != 0)
            digits += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return digits;
}

// "a=b;c=d"
std::map<std::string, std::string> Table(const std::string& text) {
    std::map<std::string, std::string> table;
    std::istringstream in(text);
    for (std::string key, value; std::getline(in, key, '=') && std::getline(in, value, ';');)
        table[key] = value;
    return table;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// The value of an extension as `openssl x509 -text` shows it: the lines below its title, and the title's own end.
struct Shown {
    std::string title = "(absent)", text = {};
};
Shown ExtensionIn(const std::string& text, const std::string& title) {
    const auto lines = Lines(text);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string start = "            " + title + ":";
        if (!lines[i].starts_with(start)) continue;
        Shown shown{lines[i].substr(start.size()), {}};
        while (++i < lines.size() && (lines[i].starts_with("             ") || lines[i].empty()))
            shown.text += lines[i] + "\n";
        return shown;
    }
    return {};
}

// Control characters as the other program writes them.
std::string Escaped(const std::string& text) {
    std::ostringstream out;
    for (const char c : text) {
        if (c == '\\') {
            out << "\\\\";
        } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
            out << '\\' << std::uppercase << std::hex << std::setw(2) << std::setfill('0') << static_cast<int>(c);
        } else {
            out << c;
        }
    }
    return out.str();
}

// A subject of ours in the other program's form: one relative name a line, the first one first, numbers for types.
std::string AsTheirs(const std::string& subject) {
    static const auto numbers = Table(
        "CN=2.5.4.3;SN=2.5.4.4;SERIALNUMBER=2.5.4.5;C=2.5.4.6;L=2.5.4.7;S=2.5.4.8;STREET=2.5.4.9;"
        "O=2.5.4.10;OU=2.5.4.11;T=2.5.4.12;G=2.5.4.42;I=2.5.4.43;E=1.2.840.113549.1.9.1;"
        "DC=0.9.2342.19200300.100.1.25");
    std::vector<std::string> names(1);
    for (std::size_t at = 0; at < subject.size();) {
        const auto equals = subject.find('=', at);
        const std::string key = subject.substr(at, equals - at);
        const auto known = numbers.find(key);
        std::string value = (known != numbers.end() ? known->second : key.substr(key.find('.') + 1)) + "=";
        at = equals + 1;
        if (at < subject.size() && subject[at] == '"') {
            for (++at; at < subject.size(); ++at) {
                if (subject[at] == '"' && subject.substr(at, 2) != "\"\"") break;
                if (subject[at] == '"') ++at;
                value += subject[at];
            }
            ++at;
        } else {
            const auto end = std::min(subject.find("\r\n", at), subject.find(" + ", at));
            value += subject.substr(at, end - at);
            at = std::min(end, subject.size());
        }
        names.back() += value;
        if (subject.compare(at, 3, " + ") == 0) {
            names.back() += " + ";
            at += 3;
        } else if (at < subject.size()) {
            names.emplace_back();
            at += 2;
        }
    }
    std::string theirs;
    for (auto name = names.rbegin(); name != names.rend(); ++name)
        if (!name->empty()) theirs += "    " + Escaped(*name) + "\n";
    return theirs;
}

// The first value of that type in such lines; of any type when none is named.
std::string Attribute(const std::string& name, const std::string& type) {
    for (const auto& line : Lines(name)) {
        std::string rest = line.substr(std::min<std::size_t>(line.size(), 4));
        const auto start = type.empty() ? rest.find('=') + 1 : rest.find(type + "=");
        if (type.empty() && rest.find('=') == std::string::npos) continue;
        if (start == std::string::npos || (!type.empty() && start > 0 && rest[start - 1] != ' ')) continue;
        auto value = rest.substr(type.empty() ? start : start + type.size() + 1);
        value = value.substr(0, value.find(" + "));
        if (!value.empty()) return value;
    }
    return "";
}

std::string DisplayName(const std::string& name, const std::string& alternative) {
    for (const auto* type : {"2.5.4.3", "2.5.4.11", "2.5.4.10", "1.2.840.113549.1.9.1"})
        if (auto value = Attribute(name, type); !value.empty()) return value;
    if (alternative.find("email:") != std::string::npos)
        return Between(Between(alternative + ",", "email:", ","), "", "\n");
    return Attribute(name, "");
}

const auto kAlgorithms = Table(
    "md2WithRSAEncryption=md2RSA;md5WithRSAEncryption=md5RSA;sha1WithRSAEncryption=sha1RSA;"
    "sha256WithRSAEncryption=sha256RSA;sha384WithRSAEncryption=sha384RSA;"
    "sha512WithRSAEncryption=sha512RSA;rsassaPss=RSASSA-PSS;ecdsa-with-SHA1=sha1ECDSA;"
    "ecdsa-with-SHA256=sha256ECDSA;ecdsa-with-SHA384=sha384ECDSA;ecdsa-with-SHA512=sha512ECDSA;"
    "ED25519=Ed25519;ED448=Ed448;dsaWithSHA1=sha1DSA;dsa_with_SHA256=sha256DSA");
// Words for upper arcs of the tree of numbers, in damaged certificates; we tell the number.
const std::set<std::string> kNoAlgorithms = {"ISO Member Body", "org", "data"};
const auto kUsages = Table(
    "TLS Web Server Authentication=Server Authentication;"
    "TLS Web Client Authentication=Client Authentication;Code Signing=Code Signing;"
    "E-mail Protection=Secure Email;Time Stamping=Time Stamping;OCSP Signing=OCSP Signing;"
    "Any Extended Key Usage=Any Purpose;0.4.0.2231.3.0=Trusted List Signing;"
    "Netscape Server Gated Crypto=2.16.840.1.113730.4.1");

std::string Translated(const std::map<std::string, std::string>& names, const std::string& name) {
    const auto found = names.find(name);
    return found == names.end() ? name : found->second;
}

// A negative number is told by its stored octets, and a positive one with the zero that keeps it positive: callers look
// certificates up by these.
std::string StoredSerial(const std::string& shown) {
    if (!shown.starts_with("-")) return (shown[0] >= '8' && shown != "0" ? "00" : "") + shown;
    const auto magnitude = std::stoull(shown.substr(1), nullptr, 16);
    std::ostringstream stored;
    for (std::size_t i = (shown.size() - 1) / 2; i-- > 0;)
        stored << std::uppercase << std::hex << std::setw(2) << std::setfill('0')
               << (((~magnitude + 1) >> (8 * i)) & 0xFF);
    return stored.str();
}

// The key identifier, else the serial number that stands beside the issuer, its last octet first.
std::string AuthorityKeyIdIn(const std::string& text) {
    const auto shown = ExtensionIn(text, "X509v3 Authority Key Identifier").text;
    // A value that it does not decode stands there as bytes with dots. We look no further than the identifier.
    if (shown.find("..") != std::string::npos) return "(undecoded)";
    const bool labelled = shown.find("DirName:") != std::string::npos || shown.find("serial:") != std::string::npos;
    if (!labelled) return Digits(shown);
    if (shown.find("keyid:") != std::string::npos) return Digits(Between(shown, "keyid:", "\n"));
    const auto serial = Digits(Between(shown, "serial:", "\n"));
    std::string reversed;
    for (std::size_t i = serial.size(); i >= 2; i -= 2)
        reversed += serial.substr(i - 2, 2);
    return reversed.size() > 2 ? reversed : "";
}

std::string LastUrlIn(const std::string& extension) {
    const auto start = extension.rfind("URI:");
    if (start == std::string::npos) return "(absent)";
    const auto url = Between(extension.substr(start), "URI:", "\n");
    return url.substr(0, url.find("  "));  // who issues the list may stand behind it
}

std::string LastUsageIn(const std::string& extension) {
    if (extension.empty()) return "(absent)";
    const auto line = Lines(extension).front();
    const auto comma = line.rfind(", ");
    if (line == "                0") return "(absent)";  // usages that are none
    return Translated(kUsages, line.substr(comma == std::string::npos ? line.find_first_not_of(' ') : comma + 2));
}

// "2010-11-08 15:54:07". Our moments begin with the year 1601.
std::string Moment(std::string shown) {
    if (shown < "1601") return "1601-01-01T00:00:00+00:00";
    return shown.replace(10, 1, "T") + "+00:00";
}

// The bits that the other program tells, or those of a curve that it knows by name alone; 0 for a key that is none.
std::string KeySizeIn(const std::string& text) {
    const auto bits = Between(text, "Public-Key: (", " bit");
    if (bits != "(absent)") return bits;
    static const auto curves = Table("ED25519=256;X25519=256;ED448=456;X448=448");
    for (const auto& [curve, size] : curves)
        if (text.find(curve + " Public-Key:") != std::string::npos) return size;
    return "0";
}

}  // namespace

void ExpectAsOpenSslReads(const Record& record, const std::string& text) {
    const auto at = [&](const char* key) { return record.at(key); };
    EXPECT_EQ(at("Serial"), StoredSerial(Between(text, "serial=", "\n")));
    EXPECT_EQ(at("NotBefore"), Moment(Between(text, "notBefore=", "Z\n")));
    EXPECT_EQ(at("NotAfter"), Moment(Between(text, "notAfter=", "Z\n")));
    const auto subject = Between(text, "subject=\n", "issuer=\n");
    EXPECT_EQ(AsTheirs(at("Subject")), subject == "    \n" ? "" : subject);
    EXPECT_EQ(Escaped(at("Organization")), Attribute(subject, "2.5.4.10"));
    EXPECT_EQ(Escaped(at("CommonName")),
              DisplayName(subject, ExtensionIn(text, "X509v3 Subject Alternative Name").text));
    EXPECT_EQ(Escaped(at("Issuer")), DisplayName(Between(text, "issuer=\n", "Certificate:\n"),
                                                 ExtensionIn(text, "X509v3 Issuer Alternative Name").text));
    // Where the two places of the algorithm differ, the outer one is what the signature was made with.
    const auto algorithm = Translated(kAlgorithms, Between(text, "\n    Signature Algorithm: ", "\n"));
    EXPECT_TRUE(at("SignatureAlgorithm") == algorithm || kNoAlgorithms.contains(algorithm)) << algorithm;
    EXPECT_EQ(at("KeySize"), KeySizeIn(text));
    EXPECT_EQ(at("SubjectKeyId"), Digits(ExtensionIn(text, "X509v3 Subject Key Identifier").text));
    const auto issuerKey = AuthorityKeyIdIn(text);
    EXPECT_TRUE(at("AuthorityKeyId") == issuerKey || issuerKey == "(undecoded)") << at("AuthorityKeyId") << issuerKey;
    EXPECT_EQ(at("CRL[0]"), LastUrlIn(ExtensionIn(text, "X509v3 CRL Distribution Points").text));
    const auto usage = ExtensionIn(text, "X509v3 Extended Key Usage");
    const bool critical = usage.title.find("critical") != std::string::npos;
    EXPECT_EQ(at(critical ? "EnhancedKeyUsageCritical[0]" : "EnhancedKeyUsage[0]"), LastUsageIn(usage.text));
    EXPECT_EQ(at(critical ? "EnhancedKeyUsage[0]" : "EnhancedKeyUsageCritical[0]"), "(absent)");
}

}  // namespace tests
