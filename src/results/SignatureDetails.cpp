#include "src/results/SignatureDetails.h"

#include "crypt/Status.h"

namespace results {
namespace {

// Words without one of these bits stay unmarked, among them some that other readers of an entry call invalid.
bool IsMarked(std::uint32_t certStatus) {
    constexpr std::uint32_t mask = 0x800B010C;
    return (certStatus & mask) > 1;
}

}  // namespace

std::vector<DetailRow> DetailsOf(const verification::SignatureEntry& entry) {
    const bool outOfTime = entry.certTimeValidity != 0;
    std::vector<DetailRow> rows{{u"Схема на подписване", entry.profile}};
    if (entry.signingTime > 0) rows.push_back({u"Време на подписване", entry.signingTimeText});
    if (entry.hasTimestamp) {
        rows.push_back({u"Време на подписване TS", entry.timestampTimeText});
        if (!entry.timestampIssuer.empty()) rows.push_back({u"Издател на сертификат на TSA", entry.timestampIssuer});
        if (!entry.timestampCertificate.empty()) rows.push_back({u"Сертификат на TSA", entry.timestampCertificate});
    }
    rows.push_back({u"Използван алгоритъм", entry.hashAlgorithm});
    rows.push_back({u"Валидност на подпис", entry.signMessage,
                    tessaly::ClassifyStatus(entry.signStatus) != tessaly::StatusClass::valid});
    rows.push_back({u"Валидност на сертификат", entry.certMessage, IsMarked(entry.certStatus)});
    rows.push_back({u"Валидност на сертификат по време", outOfTime ? u"Не валиден" : u"Валиден", outOfTime});
    return rows;
}

}  // namespace results
