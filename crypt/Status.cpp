#include "crypt/Status.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace tessaly {
namespace {

struct Row {
    std::uint32_t status;
    StatusClass statusClass;
    std::u16string_view text;
};

constexpr auto kInvalid = StatusClass::invalid;
constexpr auto kUnverified = StatusClass::unverified;

// Sorted by status. The low words are trust-status bits of a chain, the others results of the message and policy
// services.
constexpr Row kRows[] = {
    {0x00000001, kUnverified,  // CERT_TRUST_IS_NOT_TIME_VALID
     u"Периодът на валидност на този сертификат или някой от сертификатите в сертификационната верига е невалиден."},
    {0x00000002, kUnverified,  // CERT_TRUST_IS_NOT_TIME_NESTED
     u"Сертификатите в сертификационната верига не са правилно издадени."},
    {0x00000004, kInvalid,  // CERT_TRUST_IS_REVOKED
     u"Доверието в този сертификат или някой от сертификатите в сертификационната верига е отменено."},
    {0x00000008, kInvalid,  // CERT_TRUST_IS_NOT_SIGNATURE_VALID
     u"Подписът на този сертификат или някой от сертификатите в сертификационната верига е невалиден."},
    {0x00000010, kInvalid,  // CERT_TRUST_IS_NOT_VALID_FOR_USAGE
     u"Сертификатът или сертификационната верига не могат да се използват за предложената употреба."},
    {0x00000020, kInvalid,  // CERT_TRUST_IS_UNTRUSTED_ROOT
     u"Сертификатът или сертификационната верига са базирани на не доверен главен сертификат."},
    {0x00000040, kUnverified,  // CERT_TRUST_REVOCATION_STATUS_UNKNOWN
     u"Този сертификат или някой от сертификатите в сертификационната верига не може да бъде проверен за анулиране."},
    {0x00000080, kUnverified,  // CERT_TRUST_IS_CYCLIC
     u"Циклично сертифициране."},
    {0x00010000, kUnverified,  // CERT_TRUST_IS_PARTIAL_CHAIN
     u"Сертификационната верига не е пълна."},
    {0x00020000, kUnverified,  // CERT_TRUST_CTL_IS_NOT_TIME_VALID
     u"A CTL used to create this chain was not time-valid."},
    {0x00040000, kInvalid,  // CERT_TRUST_CTL_IS_NOT_SIGNATURE_VALID
     u"A CTL used to create this chain did not have a valid signature."},
    {0x00080000, kInvalid,  // CERT_TRUST_CTL_IS_NOT_VALID_FOR_USAGE
     u"A CTL used to create this chain is not valid for this usage."},
    {0x80091007, kInvalid,  // CRYPT_E_HASH_VALUE
     u"Хеш стойността не е правилна."},
    {0x80092001, kInvalid,  // CRYPT_E_BAD_LEN
     u"Дължината, определена за изходните данни, е недостатъчна."},
    {0x80092002, kInvalid,  // CRYPT_E_BAD_ENCODE
     u"Възникна грешка по време на кодиране или декодиране."},
    {0x80092010, kInvalid,  // CRYPT_E_REVOKED
     u"Сертификатът или подписът са отменени."},
    {0x80092012, kUnverified,  // CRYPT_E_NO_REVOCATION_CHECK
     u"Функцията за анулиране не успя да провери отмяната на сертификата."},
    {0x80092013, kUnverified,  // CRYPT_E_REVOCATION_OFFLINE
     u"Функцията за анулиране не успя да провери отмяната, тъй като сървърът за анулиране е офлайн."},
    {0x80096001, kUnverified,  // TRUST_E_SYSTEM_ERROR
     u"Възникна грешка на ниво операционна система при потвърждаване на доверието."},
    {0x80096002, kInvalid,  // TRUST_E_NO_SIGNER_CERT
     u"Сертификатът за подписващия съобщението не е валиден или не е намерен."},
    {0x80096003, kInvalid,  // TRUST_E_COUNTER_SIGNER
     u"Един от контрагентите не беше валиден."},
    {0x80096004, kInvalid,  // TRUST_E_CERT_SIGNATURE
     u"Подписа на сертификата не може да бъде проверен."},
    {0x80096005, kUnverified,  // TRUST_E_TIME_STAMP
     u"Подписът на сертификата или сертификатът не може да бъде потвърден или неправилно формулиран."},
    {0x80096010, kInvalid,  // TRUST_E_BAD_DIGEST
     u"Цифровият подпис на обекта не се потвърди."},
    {0x80096019, kUnverified,  // TRUST_E_BASIC_CONSTRAINTS
     u"Основните ограничения на сертификата не са валидни или липсват."},
    {0x8009601E, kUnverified,  // TRUST_E_FINANCIAL_CRITERIA
     u"Сертификатът не отговаря или не съдържа финансовите разширения."},
    {0x800B0101, kUnverified,  // CERT_E_EXPIRED
     u"Изискваният сертификат не е в рамките на неговия срок на валидност."},
    {0x800B0102, kUnverified,  // CERT_E_VALIDITYPERIODNESTING
     u"Периодите на валидност на веригата за сертифициране не се вместват правилно."},
    {0x800B0104, kUnverified,  // CERT_E_PATHLENCONST
     u"Ограничението на дължината на пътя в веригата за сертифициране е нарушено."},
    {0x800B0105, kInvalid,  // CERT_E_CRITICAL
     u"Сертификатът се използва за цел, различна от целта, определена от неговия издател."},
    {0x800B0107, kInvalid,  // CERT_E_ISSUERCHAINING
     u"Родителят на даден сертификат всъщност не е издал този сертификат."},
    {0x800B0108, kInvalid,  // CERT_E_MALFORMED
     u"Липсва сертификат или има празна стойност за важно поле, например име на субект или издател."},
    {0x800B0109, kInvalid,  // CERT_E_UNTRUSTEDROOT
     u"Веригата за сертифициране е обработена правилно, но е прекратена в сертификат за корен, който не е надежден от "
     u"доставчика на доверието."},
    {0x800B010A, kUnverified,  // CERT_E_CHAINING
     u"Веригата от сертификати не бе създадена правилно."},
    {0x800B010D, kInvalid,  // CERT_E_UNTRUSTEDTESTROOT
     u"Коренният сертификат е сертификат за тестване и настройките на правилата забраняват тестовите сертификати."},
    {0x800B0110, kUnverified,  // CERT_E_WRONG_USAGE
     u"Сертификатът не е валиден за исканата употреба."},
    {0x800B0111, kInvalid,  // CERT_E_EXPLICIT_DISTRUST
     u"Сертификатът бе категорично означен като неверен от потребителя."},
    {0x800B0112, kInvalid,  // CERT_E_UNTRUSTEDCA
     u"Веригата за сертифициране е обработена правилно, но един от сертификатите на издателя не се доверява от "
     u"доставчика на правила."},
    {0x800B0113, kInvalid,  // CERT_E_INVALID_POLICY
     u"Сертификатът има невалидна политика."},
    {0x800B0114, kInvalid,  // CERT_E_INVALID_NAME
     u"Сертификатът има невалидно име. Или името не е включено в разрешения списък или е изрично изключено."},
};

const Row* Find(std::uint32_t status) {
    const auto* row =
        std::lower_bound(std::begin(kRows), std::end(kRows), status,
                         [](const Row& candidate, std::uint32_t wanted) { return candidate.status < wanted; });
    return row != std::end(kRows) && row->status == status ? row : nullptr;
}

}  // namespace

std::u16string StatusText(std::uint32_t status) {
    if (status == 0) return u"Сертификатът е валиден.";
    const Row* row = Find(status);
    return std::u16string(row == nullptr ? u"Неизвестна грешка." : row->text);
}

StatusClass ClassifyStatus(std::uint32_t status) {
    if (status == 0) return StatusClass::valid;
    const Row* row = Find(status);
    return row == nullptr ? StatusClass::unverified : row->statusClass;
}

}  // namespace tessaly
