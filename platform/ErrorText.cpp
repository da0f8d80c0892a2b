#include <algorithm>

#include "platform/Text.h"

namespace platform {
namespace {

struct Message {
    ErrorCode code;
    const char16_t* text;
};

constexpr Message kMessages[] = {
    {ERROR_SUCCESS, u"The operation completed successfully."},
    {ERROR_FILE_NOT_FOUND, u"The system cannot find the file specified."},
    {ERROR_PATH_NOT_FOUND, u"The system cannot find the path specified."},
    {ERROR_TOO_MANY_OPEN_FILES, u"The system cannot open the file because too many files are open."},
    {ERROR_ACCESS_DENIED, u"Access is denied."},
    {ERROR_INVALID_HANDLE, u"The handle is invalid."},
    {ERROR_NOT_ENOUGH_MEMORY, u"There is not enough memory to complete the operation."},
    {ERROR_INVALID_DATA, u"The data is invalid."},
    {ERROR_WRITE_FAULT, u"The system cannot write to the device."},
    {ERROR_READ_FAULT, u"The system cannot read from the device."},
    {ERROR_GEN_FAILURE, u"The operation failed for a reason that the system does not tell."},
    {ERROR_HANDLE_EOF, u"The end of the file was reached too early."},
    {ERROR_NOT_SUPPORTED, u"The request is not supported."},
    {ERROR_FILE_EXISTS, u"The file exists."},
    {ERROR_INVALID_PASSWORD, u"The specified password is not correct."},
    {ERROR_INVALID_PARAMETER, u"The parameter is incorrect."},
    {ERROR_DISK_FULL, u"There is not enough space on the disk."},
    {ERROR_BUSY, u"The requested resource is in use."},
    {ERROR_FILENAME_EXCED_RANGE, u"The file name is too long."},
    {ERROR_FILE_TOO_LARGE, u"The file is too large for the file system."},
    {ERROR_MORE_DATA, u"More data is available than may be taken."},
    {ERROR_DIRECTORY, u"A folder stands where a file is expected."},
    {ERROR_FILE_INVALID, u"The file is larger than what may be read of it."},
    {ERROR_REGISTRY_CORRUPT, u"The registry is damaged: its file is not a valid database."},
    {ERROR_REGISTRY_IO_FAILED, u"The registry could not read or write its file."},
    {ERROR_KEY_DELETED, u"The registry key was deleted meanwhile."},
    {ERROR_NO_UNICODE_TRANSLATION, u"A character does not exist in the code page of the text."},
    {ERROR_CANCELLED, u"The operation was cancelled by the user."},
    {ERROR_PASSWORD_MUST_CHANGE, u"The PIN must be set or changed before it can be used."},
    {ERROR_INTERNET_TIMEOUT, u"The server did not answer in time."},
    {ERROR_INTERNET_INVALID_URL, u"The address is not a valid one."},
    {ERROR_INTERNET_NAME_NOT_RESOLVED, u"The server's name could not be resolved."},
    {ERROR_INTERNET_CANNOT_CONNECT, u"The connection to the server could not be made."},
    {ERROR_INTERNET_CONNECTION_ABORTED, u"The connection to the server was broken off."},
    {ERROR_HTTP_REDIRECT_FAILED, u"The server redirects too often or to where one may not go."},
    {ERROR_INTERNET_DISCONNECTED, u"The network is switched off for this program."},
    {ERROR_INTERNET_SECURE_FAILURE, u"The secure connection to the server could not be made."},
    {NTE_BAD_SIGNATURE, u"The signature is not valid."},
    {NTE_BAD_ALGID, u"The algorithm is not known or does not fit the key."},
    {NTE_BAD_KEY_STATE, u"The key is not in a state in which it can be used."},
    {NTE_NO_KEY, u"The key does not exist."},
    {NTE_EXISTS, u"The object exists already."},
    {NTE_KEYSET_NOT_DEF, u"There is no key storage provider of that name."},
    {NTE_NO_MORE_ITEMS, u"No more data is available."},
    {CRYPT_E_MSG_ERROR, u"The cryptographic message is not in a state for this operation."},
    {CRYPT_E_HASH_VALUE, u"The hash value is not correct."},
    {CRYPT_E_INVALID_INDEX, u"The index value is not valid."},
    {CRYPT_E_SIGNER_NOT_FOUND, u"The original signer was not found."},
    {CRYPT_E_BAD_LEN, u"The length specified for the output data was not sufficient."},
    {CRYPT_E_BAD_ENCODE, u"An error occurred while encoding or decoding."},
    {CRYPT_E_NOT_FOUND, u"The object or property was not found."},
    {CRYPT_E_EXISTS, u"The object or property exists already."},
    {CRYPT_E_NO_MATCH, u"No certificate, key or list matches what was asked for."},
    {CRYPT_E_UNEXPECTED_MSG_TYPE, u"The type of the cryptographic message is not the expected one."},
    {CRYPT_E_NO_KEY_PROPERTY, u"The certificate has no private key."},
    {CRYPT_E_NO_SIGNER, u"The message has no such signer."},
    {CRYPT_E_REVOKED, u"The certificate is revoked."},
    {CRYPT_E_NO_REVOCATION_CHECK, u"The revocation of the certificate could not be checked."},
    {CRYPT_E_REVOCATION_OFFLINE,
     u"The revocation of the certificate could not be checked because the revocation server was offline."},
    {CRYPT_E_ASN1_EOD, u"The ASN.1 data ended unexpectedly."},
    {CRYPT_E_ASN1_BADTAG, u"The ASN.1 data has an unexpected tag."},
    {TRUST_E_CERT_SIGNATURE, u"The signature of the certificate cannot be verified."},
    {TRUST_E_BAD_DIGEST, u"The digital signature of the object did not verify."},
    {TRUST_E_BASIC_CONSTRAINTS, u"A basic constraint extension of a certificate was not observed."},
    {CERT_E_EXPIRED, u"A certificate is not within its validity period."},
    {CERT_E_PATHLENCONST, u"A path length constraint in the certificate chain was violated."},
    {CERT_E_CRITICAL, u"A certificate contains a critical extension that is not known."},
    {CERT_E_UNTRUSTEDROOT, u"The certificate chain ends in a root certificate that is not trusted."},
    {CERT_E_CHAINING, u"A certificate chain could not be built to a trusted root authority."},
    {CERT_E_WRONG_USAGE, u"The certificate is not valid for the requested usage."},
    {CERT_E_EXPLICIT_DISTRUST, u"A certificate was explicitly marked as not trusted."},
    {CERT_E_INVALID_POLICY, u"The certificate has an invalid policy."},
    {CERT_E_INVALID_NAME, u"The certificate has an invalid name or one that is not in the permitted list."},
    {SCARD_F_INTERNAL_ERROR, u"The smart card refused the operation."},
    {SCARD_E_NO_MEMORY, u"The memory of the smart card or of the computer is not enough."},
    {SCARD_E_SHARING_VIOLATION, u"The smart card is in use by another program."},
    {SCARD_F_COMM_ERROR, u"The reader or the smart card reported an error."},
    {SCARD_E_CARD_UNSUPPORTED, u"The smart card is not recognised."},
    {SCARD_E_NO_SERVICE, u"The driver of the smart card does not work."},
    {SCARD_E_UNSUPPORTED_FEATURE, u"The smart card or its key does not permit this kind of signature."},
    {SCARD_E_INVALID_CHV, u"The PIN has a length or a character that the smart card does not take."},
    {SCARD_W_RESET_CARD, u"The connection with the smart card was lost."},
    {SCARD_W_REMOVED_CARD, u"The smart card was removed."},
    {SCARD_W_WRONG_CHV, u"The PIN is wrong."},
    {SCARD_W_CHV_BLOCKED, u"The PIN is blocked because it was entered wrongly too often."},
    {SCARD_W_CANCELLED_BY_USER, u"The user cancelled the entry of the PIN."},
};

}  // namespace

std::u16string FormatMessageW(ErrorCode code) {
    const auto* found = std::ranges::find(kMessages, code, &Message::code);
    return found == std::end(kMessages) ? std::u16string() : std::u16string(found->text) + u"\r\n";
}

}  // namespace platform
