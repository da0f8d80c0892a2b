#include "src/results/SignatureState.h"

#include "units/Helpers.h"

namespace results {

using tessaly::StatusClass;

StatusClass StateInList(const verification::SignatureEntry& entry) {
    if (tessaly::ClassifyStatus(entry.signStatus) == StatusClass::invalid) return StatusClass::invalid;
    return tessaly::ClassifyStatus(entry.certStatus);
}

StatusClass StateInReport(const verification::SignatureEntry& entry) {
    return entry.signStatus == 0 ? StatusClass::valid : tessaly::ClassifyStatus(entry.certStatus);
}

std::u16string StateWord(StatusClass state) {
    switch (state) {
        case StatusClass::valid:
            return units::LoadStringW(302);
        case StatusClass::invalid:
            return units::LoadStringW(305);
        case StatusClass::unverified:
            break;
    }
    return units::LoadStringW(303);
}

std::u16string SignerName(const verification::SignatureEntry& entry) {
    return entry.certificate ? entry.certificate->GetSubjectName() : std::u16string();
}

}  // namespace results
