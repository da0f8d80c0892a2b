#include "toolkit/cms/FindingsJson.h"

#include <set>
#include <string_view>

#include "toolkit/Base64.h"
#include "toolkit/cms/Names.h"

namespace toolkit::cms {

namespace {

class Writer {
  public:
    void Name(std::string_view name) {
        Separate();
        Quoted(name);
        text_ += ':';
        fresh_ = true;
    }
    void Text(std::string_view value) {
        Separate();
        Quoted(value);
    }
    // A member whose text is empty is left out.
    void Text(std::string_view name, std::string_view value) {
        if (value.empty()) return;
        Name(name);
        Text(value);
    }
    void Bool(std::string_view name, bool value) {
        Name(name);
        Separate();
        text_ += value ? "true" : "false";
    }
    template <typename Fill>
    void Object(Fill&& fill) {
        Bracketed('{', '}', fill);
    }
    template <typename Fill>
    void Object(std::string_view name, Fill&& fill) {
        Name(name);
        Object(fill);
    }
    template <typename Fill>
    void Array(std::string_view name, Fill&& fill) {
        Name(name);
        Bracketed('[', ']', fill);
    }
    std::string Take() { return std::move(text_); }

  private:
    void Separate() {
        if (!fresh_) text_ += ',';
        fresh_ = false;
    }
    template <typename Fill>
    void Bracketed(char open, char close, Fill&& fill) {
        Separate();
        text_ += open;
        fresh_ = true;
        fill();
        text_ += close;
        fresh_ = false;
    }
    void Quoted(std::string_view value);

    std::string text_;
    bool fresh_ = true;
};

void Writer::Quoted(std::string_view value) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    text_ += '"';
    for (const char c : value) {
        if (c == '"' || c == '\\') {
            text_ += '\\';
            text_ += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            text_ += "\\u00";
            text_ += kDigits[static_cast<unsigned char>(c) >> 4];
            text_ += kDigits[c & 0xF];
        } else {
            text_ += c;
        }
    }
    text_ += '"';
}

void WriteTree(Writer& out, const Findings& findings);

void WriteTstInfo(Writer& out, const TimestampFindings& timestamp) {
    const auto& info = *timestamp.info;
    out.Object("tstInfo", [&] {
        out.Text("tsaPolicyId", info.policy);
        out.Object("messageImprint", [&] {
            out.Text("hashAlg", timestamp.imprintHash);
            out.Text("digest", EncodeBase64(info.imprint));
            out.Bool("digestMatches", timestamp.digestMatches);
        });
        out.Text("serialNumber", UpperHex(info.serialNumber));
        out.Text("genTime", info.genTime);
    });
}

void WriteTimestamp(Writer& out, const TimestampFindings& timestamp) {
    out.Bool("timestampSignatureVerified", timestamp.signatureVerified);
    if (timestamp.verify) out.Object("verify", [&] { WriteTree(out, *timestamp.verify); });
    if (timestamp.info) WriteTstInfo(out, timestamp);
    out.Bool("timestampTokenValidated", timestamp.validated);
}

// A second attribute of the same type would never be found under its name: the first stands for all.
void WriteAttributes(Writer& out, std::string_view name, const std::vector<AttributeFindings>& attributes) {
    if (attributes.empty()) return;
    out.Object(name, [&] {
        std::set<std::string_view> written;
        for (const auto& attribute : attributes) {
            if (!written.insert(attribute.oid).second) continue;
            out.Object(attribute.oid, [&] {
                out.Text("name", attribute.name);
                for (const auto& [member, value] : attribute.members)
                    out.Text(member, value);
                // The tree has room for one token an attribute.
                if (!attribute.timestamps.empty()) WriteTimestamp(out, attribute.timestamps.front());
            });
        }
    });
}

void WriteSigner(Writer& out, const SignerFindings& signer) {
    out.Object([&] {
        out.Object("cert", [&] {
            out.Text("serialNumber", signer.serialNumber);
            out.Text("issuerCN", signer.issuerCN);
            out.Text("issuerDN", signer.issuerDN);
            out.Text("subjectKeyIdentifier", signer.subjectKeyIdentifier);
            out.Text("digestAlgOid", signer.digestAlgOid);
            out.Text("digestAlgName", signer.digestAlgName);
        });
        out.Text("contentType", signer.contentType);
        out.Text("signingTime", signer.signingTime);
        out.Text("messageDigest", signer.messageDigest);
        out.Text("signingAlgOid", signer.signingAlgOid);
        out.Text("signingAlgName", signer.signingAlgName);
        WriteAttributes(out, "authAttr", signer.signedAttributes);
        WriteAttributes(out, "unauthAttr", signer.unsignedAttributes);
    });
}

// A token's tree is one level below its message's and has no token trees of its own.
void WriteTree(Writer& out, const Findings& findings) {
    out.Array("digestAlgorithms", [&] {
        for (const auto& name : findings.digestAlgorithms)
            out.Text(name);
    });
    if (findings.useConstructedOctets) out.Bool("useConstructedOctets", true);
    if (findings.omitAlgorithmIdNull) out.Bool("omitAlgorithmIdNull", true);
    if (!findings.certificates.empty()) {
        out.Array("certs", [&] {
            for (const auto& certificate : findings.certificates) {
                out.Object([&] {
                    out.Text("issuerCN", certificate.issuerCN);
                    out.Text("serial", certificate.serial);
                });
            }
        });
    }
    if (!findings.signers.empty()) {
        out.Array("signerInfo", [&] {
            for (const auto& signer : findings.signers)
                WriteSigner(out, signer);
        });
    }
}

}  // namespace

std::string ToJson(const Findings& findings) {
    Writer out;
    out.Object([&] { out.Object("pkcs7", [&] { out.Object("verify", [&] { WriteTree(out, findings); }); }); });
    return out.Take();
}

}  // namespace toolkit::cms
