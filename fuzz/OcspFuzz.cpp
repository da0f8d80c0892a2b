// Answers of OCSP responders: any bytes are judged or refused, and none is believed but those that were signed with the
// key of the seeds.

#include <array>
#include <cstdlib>
#include <string_view>

#include "platform/posix/Ocsp.h"

namespace {

using namespace platform;

void Require(bool holds) {
    if (!holds) std::abort();
}

// An authority and a person, serial number 1; the seeds are `openssl ocsp`'s answers about the person, one of them by a
// responder that the authority certified.
constexpr std::string_view kAuthority =
    "3082018030820125a00302010202147810830dd8092a604f81f7f01b8f7127cbfc6890300a06082a8648ce3d040302300c310a3008060355"
    "04030c01413020170d3236313132333038353230325a180f32303539313030313038353230325a300c310a300806035504030c0141305930"
    "1306072a8648ce3d020106082a8648ce3d0301070342000439acc7102fb6155e22b70f83647e7210f63a4417564e23936c1e8644367325c6"
    "31e9f34564013a350e617391e5ecb0635b38d8378df87b38bde393f432ef60f3a3633061301d0603551d0e04160414987be9d9b9fb3b57c9"
    "f9786dfb88fc7e32854c1b301f0603551d23041830168014987be9d9b9fb3b57c9f9786dfb88fc7e32854c1b300f0603551d130101ff0405"
    "30030101ff300e0603551d0f0101ff040403020106300a06082a8648ce3d0403020349003046022100cb167664dc44e11d82b34901302854"
    "52116b8b7118e97b3da5947e871e46e6d5022100e7c2031d89851819700e52154a8cea1132daa3745b66ba0b04e6983930cbd427";
constexpr std::string_view kPerson =
    "308201013081a8020101300a06082a8648ce3d040302300c310a300806035504030c01413020170d3236313132333038353230325a180f32"
    "303539313030313038353230325a300c310a300806035504030c01503059301306072a8648ce3d020106082a8648ce3d0301070342000440"
    "d637af7b32d275555d4a4bba2e79530e79402d93cdef7cce048359241840d498d375724a6ad120a731dee8fc657ae81b2be33984ddeda02d"
    "55f8b8e27afef9300a06082a8648ce3d04030203480030450221008b23eae5d1b9ce575c3d7404e5f044d7b3a57b6c12d36b0ddf9944d215"
    "b6288802202d0c1d6d225d191134aa88c8ad9187d54263cfb5da98756103e536b16c7d8944";
constexpr std::int64_t kAnswered = 1'795'423'922;  // the seeds' thisUpdate, give or take a second

CertificateContext Decoded(std::string_view hex) {
    Bytes der;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        der.push_back(static_cast<std::uint8_t>(std::strtoul(std::string(hex.substr(i, 2)).c_str(), nullptr, 16)));
    const CertificateContext certificate = CertCreateCertificateContext(der);
    Require(static_cast<bool>(certificate));
    return certificate;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::array<CertificateContext, 2> path = {Decoded(kPerson), Decoded(kAuthority)};
    static const posix::OcspQuestion question(path);
    static const ChainEngine nothing;
    Require(static_cast<bool>(question));
    ChainParameters parameters;
    parameters.engine = &nothing;
    posix::ChainSources sources(path[0], parameters);
    const auto answer =
        question.Judge({data, size}, posix::OcspQuestion::Nonce::compare, FileTimeFromUnix(kAnswered + 3600), sources);
    if (!answer) return 0;
    constexpr FILETIME kSecond = kFileTimeUnitsPerSecond;
    Require(answer->thisUpdate + kSecond >= FileTimeFromUnix(kAnswered));
    Require(answer->thisUpdate <= FileTimeFromUnix(kAnswered) + 2 * kSecond);
    return 0;
}
