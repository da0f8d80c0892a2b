// The PKCS#11 module behind tests::FakeToken.

#include <openssl/core_names.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "platform/posix/OpenSsl.h"
#include "tests/support/FakeToken.h"
#include "tests/support/PemFile.h"

namespace {

using tests::Bytes;
using tests::ByteView;
using tests::FakeTokenState;

FakeTokenState state;
constexpr CK_SLOT_ID kSlot = 7;
const Bytes kId = {0x45};

struct Session {
    std::vector<CK_OBJECT_HANDLE> found;
    bool signing = false;
    bool authenticated = false;
};
std::map<CK_SESSION_HANDLE, Session> sessions;
CK_SESSION_HANDLE nextSession = 1;

// For a program under test, which has no access to the state: NORVIK_FAKE_TOKEN names a file with the card's
// certificate and key in PEM, NORVIK_FAKE_TOKEN_TRIES says how many tries of the PIN are left.
bool ReadEnvironment() {
    const char* name = std::getenv("NORVIK_FAKE_TOKEN");
    const auto blocks = tests::ReadPemFile(name == nullptr ? "" : name);
    if (blocks.size() != 2) return false;
    state.certificate = blocks[0].der;
    const unsigned char* cursor = blocks[1].der.data();
    state.signingKey = d2i_AutoPrivateKey(nullptr, &cursor, static_cast<long>(blocks[1].der.size()));
    if (const char* tries = std::getenv("NORVIK_FAKE_TOKEN_TRIES")) state.triesLeft = std::atoi(tries);
    return true;
}
[[maybe_unused]] const bool environmentRead = ReadEnvironment();  // once the state stands

void PullOut() {
    state.present = false;
    state.loggedIn = false;
    sessions.clear();
    state.openSessions = 0;
}

// What the test wants of this call; CKR_OK: go on.
CK_RV Enter(const char* call) {
    if (state.pulledOutAt == call) PullOut();
    return state.failingCall == call ? state.fault : CKR_OK;
}

// The same for a call on a session, which then does its work.
CK_RV Enter(const char* call, CK_SESSION_HANDLE handle, const std::function<CK_RV(Session&)>& work) {
    if (const CK_RV wanted = Enter(call); wanted != CKR_OK) return wanted;
    if (!state.present) return CKR_DEVICE_REMOVED;
    const auto found = sessions.find(handle);
    return found == sessions.end() ? CKR_SESSION_HANDLE_INVALID : work(found->second);
}

enum Object : CK_OBJECT_HANDLE { certificate = 1, publicKey, privateKey, authority };

bool Visible(CK_OBJECT_HANDLE object) {
    if (object == publicKey) return state.showsPublicKey;
    if (object == privateKey) return state.loggedIn || !state.loginRequired;
    return object == certificate || !state.authority.empty();
}

Bytes Raw(CK_ULONG number) {
    Bytes bytes(sizeof number);
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

// The key of the certificate, which need not be the one that signs.
Bytes Modulus() {
    const unsigned char* der = state.certificate.data();
    const platform::posix::X509Ptr card(d2i_X509(nullptr, &der, static_cast<long>(state.certificate.size())));
    BIGNUM* number = nullptr;
    EVP_PKEY_get_bn_param(X509_get0_pubkey(card.get()), OSSL_PKEY_PARAM_RSA_N, &number);
    Bytes modulus(static_cast<std::size_t>(BN_num_bytes(number)));
    BN_bn2bin(number, modulus.data());
    BN_free(number);
    return modulus;
}

Bytes Attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    const bool isCertificate = object == certificate || object == authority;
    switch (type) {
        case CKA_CLASS:
            return Raw(isCertificate ? CKO_CERTIFICATE : object == publicKey ? CKO_PUBLIC_KEY : CKO_PRIVATE_KEY);
        case CKA_CERTIFICATE_TYPE:
            return isCertificate ? Raw(CKC_X_509) : Bytes();
        case CKA_KEY_TYPE:
            return isCertificate ? Bytes() : Raw(CKK_RSA);
        case CKA_ID:
            return object == authority ? Bytes{0x99} : kId;
        case CKA_VALUE:
            return object == certificate ? state.certificate : object == authority ? state.authority : Bytes();
        case CKA_MODULUS:
            return isCertificate ? Bytes() : Modulus();
        case CKA_ALWAYS_AUTHENTICATE:
            return {static_cast<std::uint8_t>(object == privateKey && state.alwaysAuthenticate)};
        default:
            return {};
    }
}

bool Matches(CK_OBJECT_HANDLE object, const CK_ATTRIBUTE* wanted, CK_ULONG count) {
    return std::all_of(wanted, wanted + count, [&](const CK_ATTRIBUTE& attribute) {
        const Bytes value = Attribute(object, attribute.type);
        return value.size() == attribute.ulValueLen && std::memcmp(value.data(), attribute.pValue, value.size()) == 0;
    });
}

template <std::size_t N>
void Fill(CK_UTF8CHAR (&field)[N], const char* text) {
    std::memset(field, ' ', N);
    std::memcpy(field, text, std::strlen(text));
}

CK_RV GetTokenInfo(CK_SLOT_ID, CK_TOKEN_INFO* info) {
    if (const CK_RV wanted = Enter("C_GetTokenInfo"); wanted != CKR_OK) return wanted;
    if (!state.present) return CKR_TOKEN_NOT_PRESENT;
    *info = {};
    Fill(info->label, "Fake card");
    Fill(info->manufacturerID, "Tests");
    Fill(info->model, "Fake");
    std::memcpy(info->serialNumber, "0000000000000042", 16);
    info->flags = CKF_TOKEN_INITIALIZED | CKF_USER_PIN_INITIALIZED;
    if (state.loginRequired) info->flags |= CKF_LOGIN_REQUIRED;
    if (state.protectedPath) info->flags |= CKF_PROTECTED_AUTHENTICATION_PATH;
    if (state.triesLeft == 2) info->flags |= CKF_USER_PIN_COUNT_LOW;
    if (state.triesLeft == 1) info->flags |= CKF_USER_PIN_FINAL_TRY;
    if (state.triesLeft == 0) info->flags |= CKF_USER_PIN_LOCKED;
    return CKR_OK;
}

void AddCallsOnTheSlot(CK_FUNCTION_LIST& list) {
    list.C_Initialize = [](void*) { return Enter("C_Initialize"); };
    list.C_Finalize = [](void*) -> CK_RV { return sessions.clear(), CKR_OK; };
    list.C_GetInfo = [](CK_INFO* info) -> CK_RV {
        *info = {};
        info->cryptokiVersion = {2, 40};
        Fill(info->manufacturerID, "Tests");
        Fill(info->libraryDescription, "Fake token");
        return CKR_OK;
    };
    list.C_GetSlotList = [](CK_BBOOL withToken, CK_SLOT_ID* slots, CK_ULONG* count) -> CK_RV {
        if (const CK_RV wanted = Enter("C_GetSlotList"); wanted != CKR_OK) return wanted;
        const CK_ULONG there = state.present || withToken == CK_FALSE ? 1 : 0;
        if (slots != nullptr && *count < there) return CKR_BUFFER_TOO_SMALL;
        if (slots != nullptr && there == 1) slots[0] = kSlot;
        *count = there;
        return CKR_OK;
    };
    list.C_GetTokenInfo = GetTokenInfo;
    list.C_OpenSession = [](CK_SLOT_ID, CK_FLAGS, void*, CK_NOTIFY, CK_SESSION_HANDLE* handle) -> CK_RV {
        if (const CK_RV wanted = Enter("C_OpenSession"); wanted != CKR_OK) return wanted;
        if (!state.present) return CKR_TOKEN_NOT_PRESENT;
        *handle = nextSession++;
        sessions[*handle] = {};
        ++state.openSessions;
        return CKR_OK;
    };
    list.C_CloseSession = [](CK_SESSION_HANDLE handle) -> CK_RV {
        if (sessions.erase(handle) == 0) return CKR_SESSION_HANDLE_INVALID;
        --state.openSessions;
        if (sessions.empty()) state.loggedIn = false;
        return CKR_OK;
    };
    list.C_CloseAllSessions = [](CK_SLOT_ID) -> CK_RV {
        sessions.clear();
        state.openSessions = 0;
        state.loggedIn = false;
        return CKR_OK;
    };
}

CK_RV CheckPin(const CK_UTF8CHAR* pin, CK_ULONG size) {
    if (state.triesLeft == 0) return CKR_PIN_LOCKED;
    const bool typedOnPad = state.protectedPath && pin == nullptr;
    if (typedOnPad || std::string(reinterpret_cast<const char*>(pin), size) == state.pin) {
        state.triesLeft = 3;
        return CKR_OK;
    }
    --state.triesLeft;
    ++state.wrongPins;
    return CKR_PIN_INCORRECT;
}

CK_RV LoginForOneSignature(Session& session, const CK_UTF8CHAR* pin, CK_ULONG size) {
    if (!session.signing) return CKR_OPERATION_NOT_INITIALIZED;
    const CK_RV result = CheckPin(pin, size);
    session.authenticated = result == CKR_OK;
    state.contextLogins += result == CKR_OK ? 1 : 0;
    return result;
}

CK_RV Login(const CK_UTF8CHAR* pin, CK_ULONG size) {
    if (state.loggedIn) return CKR_USER_ALREADY_LOGGED_IN;
    const CK_RV result = CheckPin(pin, size);
    if (result != CKR_OK) return result;
    state.loggedIn = true;
    ++state.userLogins;
    return CKR_OK;
}

void AddLogin(CK_FUNCTION_LIST& list) {
    list.C_GetSessionInfo = [](CK_SESSION_HANDLE handle, CK_SESSION_INFO* info) {
        return Enter("C_GetSessionInfo", handle, [&](Session&) {
            *info = {kSlot, state.loggedIn ? CKS_RO_USER_FUNCTIONS : CKS_RO_PUBLIC_SESSION, CKF_SERIAL_SESSION, 0};
            return CKR_OK;
        });
    };
    list.C_Login = [](CK_SESSION_HANDLE handle, CK_USER_TYPE user, CK_UTF8CHAR* pin, CK_ULONG size) {
        return Enter("C_Login", handle, [&](Session& session) {
            return user == CKU_CONTEXT_SPECIFIC ? LoginForOneSignature(session, pin, size) : Login(pin, size);
        });
    };
    list.C_Logout = [](CK_SESSION_HANDLE handle) {
        return Enter("C_Logout", handle, [&](Session&) -> CK_RV {
            if (!state.loggedIn) return CKR_USER_NOT_LOGGED_IN;
            state.loggedIn = false;
            ++state.logouts;
            return CKR_OK;
        });
    };
}

CK_RV GiveAttributes(CK_OBJECT_HANDLE object, CK_ATTRIBUTE* wanted, CK_ULONG count) {
    for (CK_ULONG i = 0; i < count; ++i) {
        const Bytes value = Attribute(object, wanted[i].type);
        if (value.empty()) {
            wanted[i].ulValueLen = CK_UNAVAILABLE_INFORMATION;
            return CKR_ATTRIBUTE_TYPE_INVALID;
        }
        if (wanted[i].pValue != nullptr && wanted[i].ulValueLen < value.size()) return CKR_BUFFER_TOO_SMALL;
        if (wanted[i].pValue != nullptr) std::memcpy(wanted[i].pValue, value.data(), value.size());
        wanted[i].ulValueLen = value.size();
    }
    return CKR_OK;
}

void AddObjects(CK_FUNCTION_LIST& list) {
    list.C_FindObjectsInit = [](CK_SESSION_HANDLE handle, CK_ATTRIBUTE* wanted, CK_ULONG count) {
        return Enter("C_FindObjectsInit", handle, [&](Session& session) {
            session.found.clear();
            for (const CK_OBJECT_HANDLE object : {authority, certificate, publicKey, privateKey})
                if (Visible(object) && Matches(object, wanted, count)) session.found.push_back(object);
            return CKR_OK;
        });
    };
    list.C_FindObjects = [](CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE* objects, CK_ULONG most, CK_ULONG* count) {
        return Enter("C_FindObjects", handle, [&](Session& session) {
            *count = std::min<CK_ULONG>(most, session.found.size());
            std::copy_n(session.found.begin(), *count, objects);
            session.found.erase(session.found.begin(), session.found.begin() + static_cast<std::ptrdiff_t>(*count));
            return CKR_OK;
        });
    };
    list.C_FindObjectsFinal = [](CK_SESSION_HANDLE) -> CK_RV { return CKR_OK; };
    list.C_GetAttributeValue = [](CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object, CK_ATTRIBUTE* wanted,
                                  CK_ULONG count) {
        return Enter("C_GetAttributeValue", handle, [&](Session&) { return GiveAttributes(object, wanted, count); });
    };
}

CK_RV StartSigning(Session& session, const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE key) {
    if (key != privateKey || !Visible(key)) return CKR_KEY_HANDLE_INVALID;
    if (mechanism.mechanism != CKM_RSA_PKCS) return CKR_MECHANISM_INVALID;
    if (session.signing) return CKR_OPERATION_ACTIVE;
    session.signing = true;
    session.authenticated = !state.alwaysAuthenticate;
    return CKR_OK;
}

CK_RV Sign(Session& session, ByteView data, CK_BYTE* signature, CK_ULONG* size) {
    if (!session.signing) return CKR_OPERATION_NOT_INITIALIZED;
    session.signing = false;
    if (!session.authenticated) return CKR_USER_NOT_LOGGED_IN;
    const platform::posix::EvpKeyContextPtr context(EVP_PKEY_CTX_new(state.signingKey, nullptr));
    const bool good = EVP_PKEY_sign_init(context.get()) == 1 &&
                      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
                      EVP_PKEY_sign(context.get(), signature, size, data.data(), data.size()) == 1;
    state.signatures += good ? 1 : 0;
    return good ? CKR_OK : CKR_FUNCTION_FAILED;
}

void AddSigning(CK_FUNCTION_LIST& list) {
    list.C_SignInit = [](CK_SESSION_HANDLE handle, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
        return Enter("C_SignInit", handle, [&](Session& session) { return StartSigning(session, *mechanism, key); });
    };
    list.C_Sign = [](CK_SESSION_HANDLE handle, CK_BYTE* data, CK_ULONG size, CK_BYTE* signature, CK_ULONG* written) {
        return Enter("C_Sign", handle, [&](Session& session) {
            return Sign(session, {data, size}, signature, written);
        });
    };
}

// Calls that nobody makes of a card that only signs stay empty.
CK_RV GetFunctionList(CK_FUNCTION_LIST** answer) {
    static CK_FUNCTION_LIST list = [] {
        CK_FUNCTION_LIST made{};
        made.version = {2, 40};
        made.C_GetFunctionList = GetFunctionList;
        for (const auto add : {AddCallsOnTheSlot, AddLogin, AddObjects, AddSigning})
            add(made);
        return made;
    }();
    *answer = &list;
    return CKR_OK;
}

}  // namespace

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
    return GetFunctionList(list);
}

extern "C" FakeTokenState* TheFakeTokenState() {
    return &state;
}
