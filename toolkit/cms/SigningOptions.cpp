#include "toolkit/cms/SigningOptions.h"

#include "toolkit/ClsJsonObject.h"

namespace toolkit::cms {

using platform::HashAlgorithm;

std::optional<HashAlgorithm> SigningHash(std::string_view name) {
    const auto hash = platform::HashFromName(name);
    for (const auto known :
         {HashAlgorithm::sha1, HashAlgorithm::sha256, HashAlgorithm::sha384, HashAlgorithm::sha512}) {
        if (hash == known) return known;
    }
    return std::nullopt;
}

SigningOptions ReadSigningOptions(std::string_view text) {
    ClsJsonObject json;
    json.Load(std::string(text));
    const auto isSet = [&json](std::string_view path) {
        const auto value = json.StringOf(path);
        return value == "1" || value == "true";
    };
    SigningOptions options;
    TimestampOptions& timestamp = options.timestamp;
    timestamp.enabled = isSet("timestampToken.enabled");
    timestamp.addNonce = isSet("timestampToken.addNonce");
    timestamp.requestTsaCert = isSet("timestampToken.requestTsaCert");
    timestamp.tsaUrl = json.StringOf("timestampToken.tsaUrl");
    timestamp.hash = SigningHash(json.StringOf("timestampToken.hashAlg").value_or("")).value_or(HashAlgorithm::sha256);
    timestamp.policyOid = json.StringOf("timestampToken.policyOid").value_or("");

    options.attributes = {.contentType = isSet("contentType"),
                          .messageDigest = isSet("messageDigest"),
                          .signingTime = isSet("signingTime") && !timestamp.enabled,
                          .signingCertificateV2 = isSet("signingCertificateV2")};
    return options;
}

}  // namespace toolkit::cms
