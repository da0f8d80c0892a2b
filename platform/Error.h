#pragma once
// The calling thread's last error. A service that fails returns an empty value and leaves a non-zero code here, except
// where "not present" is an answer and not a failure.

#include <cstdint>

namespace platform {

using ErrorCode = std::uint32_t;

ErrorCode GetLastError();
void SetLastError(ErrorCode code);

// The platform's code for an errno value: 2 for ENOENT, 5 for EACCES and EPERM, ... (ERROR_GEN_FAILURE if it has none).
ErrorCode ErrorFromErrno(int error);

constexpr ErrorCode ERROR_SUCCESS = 0;
constexpr ErrorCode ERROR_FILE_NOT_FOUND = 2;
constexpr ErrorCode ERROR_PATH_NOT_FOUND = 3;
constexpr ErrorCode ERROR_TOO_MANY_OPEN_FILES = 4;
constexpr ErrorCode ERROR_ACCESS_DENIED = 5;
constexpr ErrorCode ERROR_INVALID_HANDLE = 6;
constexpr ErrorCode ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr ErrorCode ERROR_INVALID_DATA = 0xD;
constexpr ErrorCode ERROR_WRITE_FAULT = 0x1D;
constexpr ErrorCode ERROR_READ_FAULT = 0x1E;
constexpr ErrorCode ERROR_GEN_FAILURE = 0x1F;
constexpr ErrorCode ERROR_HANDLE_EOF = 0x26;
constexpr ErrorCode ERROR_NOT_SUPPORTED = 0x32;
constexpr ErrorCode ERROR_FILE_EXISTS = 0x50;
constexpr ErrorCode ERROR_INVALID_PASSWORD = 0x56;
constexpr ErrorCode ERROR_INVALID_PARAMETER = 0x57;
constexpr ErrorCode ERROR_DISK_FULL = 0x70;
constexpr ErrorCode ERROR_BUSY = 0xAA;
constexpr ErrorCode ERROR_FILENAME_EXCED_RANGE = 0xCE;
constexpr ErrorCode ERROR_FILE_TOO_LARGE = 0xDF;
constexpr ErrorCode ERROR_MORE_DATA = 0xEA;
constexpr ErrorCode ERROR_DIRECTORY = 0x10B;
constexpr ErrorCode ERROR_NO_UNICODE_TRANSLATION = 0x459;
constexpr ErrorCode ERROR_CANCELLED = 0x4C7;
constexpr ErrorCode ERROR_PASSWORD_MUST_CHANGE = 0x773;
constexpr ErrorCode ERROR_FILE_INVALID = 0x3EE;
constexpr ErrorCode ERROR_REGISTRY_CORRUPT = 0x3F7;
constexpr ErrorCode ERROR_REGISTRY_IO_FAILED = 0x3F8;
constexpr ErrorCode ERROR_KEY_DELETED = 0x3FA;
constexpr ErrorCode ERROR_INTERNET_TIMEOUT = 0x2EE2;
constexpr ErrorCode ERROR_INTERNET_INVALID_URL = 0x2EE5;
constexpr ErrorCode ERROR_INTERNET_NAME_NOT_RESOLVED = 0x2EE7;
constexpr ErrorCode ERROR_INTERNET_CANNOT_CONNECT = 0x2EFD;
constexpr ErrorCode ERROR_INTERNET_CONNECTION_ABORTED = 0x2EFE;
constexpr ErrorCode ERROR_HTTP_REDIRECT_FAILED = 0x2F7C;
constexpr ErrorCode ERROR_INTERNET_DISCONNECTED = 0x2F83;
constexpr ErrorCode ERROR_INTERNET_SECURE_FAILURE = 0x2F8F;

constexpr ErrorCode NTE_BAD_SIGNATURE = 0x80090006;
constexpr ErrorCode NTE_BAD_ALGID = 0x80090008;
constexpr ErrorCode NTE_BAD_KEY_STATE = 0x8009000B;
constexpr ErrorCode NTE_NO_KEY = 0x8009000D;
constexpr ErrorCode NTE_EXISTS = 0x8009000F;
constexpr ErrorCode NTE_KEYSET_NOT_DEF = 0x80090019;
constexpr ErrorCode NTE_NO_MORE_ITEMS = 0x8009002A;

constexpr ErrorCode CRYPT_E_MSG_ERROR = 0x80091001;
constexpr ErrorCode CRYPT_E_HASH_VALUE = 0x80091007;
constexpr ErrorCode CRYPT_E_INVALID_INDEX = 0x80091008;
constexpr ErrorCode CRYPT_E_SIGNER_NOT_FOUND = 0x8009100E;
constexpr ErrorCode CRYPT_E_BAD_LEN = 0x80092001;
constexpr ErrorCode CRYPT_E_BAD_ENCODE = 0x80092002;
constexpr ErrorCode CRYPT_E_NOT_FOUND = 0x80092004;
constexpr ErrorCode CRYPT_E_EXISTS = 0x80092005;
constexpr ErrorCode CRYPT_E_NO_MATCH = 0x80092009;
constexpr ErrorCode CRYPT_E_UNEXPECTED_MSG_TYPE = 0x8009200A;
constexpr ErrorCode CRYPT_E_NO_KEY_PROPERTY = 0x8009200B;
constexpr ErrorCode CRYPT_E_NO_SIGNER = 0x8009200E;
constexpr ErrorCode CRYPT_E_REVOKED = 0x80092010;
constexpr ErrorCode CRYPT_E_NO_REVOCATION_CHECK = 0x80092012;
constexpr ErrorCode CRYPT_E_REVOCATION_OFFLINE = 0x80092013;
constexpr ErrorCode CRYPT_E_ASN1_EOD = 0x80093102;
constexpr ErrorCode CRYPT_E_ASN1_BADTAG = 0x8009310B;
constexpr ErrorCode TRUST_E_CERT_SIGNATURE = 0x80096004;
constexpr ErrorCode TRUST_E_BAD_DIGEST = 0x80096010;
constexpr ErrorCode TRUST_E_BASIC_CONSTRAINTS = 0x80096019;
constexpr ErrorCode CERT_E_EXPIRED = 0x800B0101;
constexpr ErrorCode CERT_E_PATHLENCONST = 0x800B0104;
constexpr ErrorCode CERT_E_CRITICAL = 0x800B0105;
constexpr ErrorCode CERT_E_UNTRUSTEDROOT = 0x800B0109;
constexpr ErrorCode CERT_E_CHAINING = 0x800B010A;
constexpr ErrorCode CERT_E_WRONG_USAGE = 0x800B0110;
constexpr ErrorCode CERT_E_EXPLICIT_DISTRUST = 0x800B0111;
constexpr ErrorCode CERT_E_INVALID_POLICY = 0x800B0113;
constexpr ErrorCode CERT_E_INVALID_NAME = 0x800B0114;

constexpr ErrorCode SCARD_F_INTERNAL_ERROR = 0x80100001;
constexpr ErrorCode SCARD_E_NO_MEMORY = 0x80100006;
constexpr ErrorCode SCARD_E_SHARING_VIOLATION = 0x8010000B;
constexpr ErrorCode SCARD_F_COMM_ERROR = 0x80100013;
constexpr ErrorCode SCARD_E_CARD_UNSUPPORTED = 0x8010001C;
constexpr ErrorCode SCARD_E_NO_SERVICE = 0x8010001D;
constexpr ErrorCode SCARD_E_UNSUPPORTED_FEATURE = 0x80100022;
constexpr ErrorCode SCARD_E_INVALID_CHV = 0x8010002A;
constexpr ErrorCode SCARD_W_RESET_CARD = 0x80100068;
constexpr ErrorCode SCARD_W_REMOVED_CARD = 0x80100069;
constexpr ErrorCode SCARD_W_WRONG_CHV = 0x8010006B;
constexpr ErrorCode SCARD_W_CHV_BLOCKED = 0x8010006C;
constexpr ErrorCode SCARD_W_CANCELLED_BY_USER = 0x8010006E;

}  // namespace platform
