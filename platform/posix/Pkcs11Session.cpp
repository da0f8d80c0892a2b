#include <algorithm>
#include <cstring>

#include "platform/posix/Pkcs11.h"
#include "platform/posix/TokenFault.h"

namespace platform::posix {
namespace {

constexpr std::size_t kMostObjects = 4096;
constexpr CK_ULONG kLongestAttribute = 1UL << 20;
constexpr CK_ULONG kMostSlots = 1024;

// Texts of a token stand in fixed fields, padded with blanks; some drivers end them with a zero.
template <std::size_t N>
std::string Unpadded(const CK_UTF8CHAR (&field)[N]) {
    std::string text(reinterpret_cast<const char*>(field), strnlen(reinterpret_cast<const char*>(field), N));
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    return text;
}

// The slots with a token. The number may change between the two calls.
std::optional<std::vector<CK_SLOT_ID>> SlotsWithToken(CK_FUNCTION_LIST* functions) {
    CK_RV result = CKR_OK;
    for (int attempt = 0; attempt < 4; ++attempt) {
        CK_ULONG count = 0;
        result = functions->C_GetSlotList(CK_TRUE, nullptr, &count);
        if (result != CKR_OK) break;
        std::vector<CK_SLOT_ID> slots(std::min(count, kMostSlots) + 1);
        count = static_cast<CK_ULONG>(slots.size());
        result = functions->C_GetSlotList(CK_TRUE, slots.data(), &count);
        if (result == CKR_BUFFER_TOO_SMALL) continue;
        if (result != CKR_OK) break;
        slots.resize(std::min<std::size_t>(count, slots.size()));
        return slots;
    }
    TokenFault(result, "C_GetSlotList", {});
    return std::nullopt;
}

}  // namespace

bool TokenSlot::IsSameToken(const TokenSlot& other) const {
    return module->file == other.module->file && label == other.label && serial == other.serial &&
           manufacturer == other.manufacturer && model == other.model;
}

std::optional<CK_FLAGS> TokenSlot::FlagsNow() const {
    CK_TOKEN_INFO info{};
    const CK_RV result = Functions()->C_GetTokenInfo(slot, &info);
    if (result == CKR_OK) return info.flags;
    TokenFault(result, "C_GetTokenInfo", label);
    return std::nullopt;
}

std::vector<TokenSlot> TokensOf(const std::shared_ptr<const Pkcs11Modules>& modules, const Pkcs11Module& module) {
    std::vector<TokenSlot> tokens;
    const auto slots = SlotsWithToken(module.functions);
    if (!slots) return tokens;
    for (const CK_SLOT_ID slot : *slots) {
        CK_TOKEN_INFO info{};
        const CK_RV result = module.functions->C_GetTokenInfo(slot, &info);
        if (result != CKR_OK) {
            TokenFault(result, "C_GetTokenInfo", {});
            continue;
        }
        if ((info.flags & CKF_TOKEN_INITIALIZED) == 0) continue;
        tokens.push_back({modules, &module, slot, info.flags, Unpadded(info.label), Unpadded(info.manufacturerID),
                          Unpadded(info.model), Unpadded(info.serialNumber)});
    }
    return tokens;
}

std::unique_ptr<Pkcs11Session> Pkcs11Session::Open(const TokenSlot& token) {
    CK_SESSION_HANDLE handle = 0;
    const CK_RV result = token.Functions()->C_OpenSession(token.slot, CKF_SERIAL_SESSION, nullptr, nullptr, &handle);
    if (result == CKR_OK) return std::unique_ptr<Pkcs11Session>(new Pkcs11Session(token, handle));
    TokenFault(result, "C_OpenSession", token.label);
    return nullptr;
}

Pkcs11Session::~Pkcs11Session() {
    if (token_.modules->IsOurs()) token_.Functions()->C_CloseSession(handle_);
}

bool Pkcs11Session::IsUserLoggedIn() const {
    CK_SESSION_INFO info{};
    return token_.Functions()->C_GetSessionInfo(handle_, &info) == CKR_OK &&
           (info.state == CKS_RO_USER_FUNCTIONS || info.state == CKS_RW_USER_FUNCTIONS);
}

std::optional<std::vector<CK_OBJECT_HANDLE>> Pkcs11Session::Find(std::span<CK_ATTRIBUTE> wanted) const {
    CK_FUNCTION_LIST* functions = token_.Functions();
    CK_RV result = functions->C_FindObjectsInit(handle_, wanted.data(), static_cast<CK_ULONG>(wanted.size()));
    if (result != CKR_OK) {
        TokenFault(result, "C_FindObjectsInit", token_.label);
        return std::nullopt;
    }
    std::vector<CK_OBJECT_HANDLE> objects;
    CK_OBJECT_HANDLE batch[64];
    CK_ULONG count = 0;
    do {
        result = functions->C_FindObjects(handle_, batch, std::size(batch), &count);
        if (result == CKR_OK) objects.insert(objects.end(), batch, batch + std::min<CK_ULONG>(count, std::size(batch)));
    } while (result == CKR_OK && count != 0 && objects.size() < kMostObjects);
    functions->C_FindObjectsFinal(handle_);
    if (result == CKR_OK) return objects;
    TokenFault(result, "C_FindObjects", token_.label);
    return std::nullopt;
}

Bytes Pkcs11Session::Attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const {
    CK_FUNCTION_LIST* functions = token_.Functions();
    CK_ATTRIBUTE attribute{type, nullptr, 0};
    const auto read = [&] {
        const CK_RV result = functions->C_GetAttributeValue(handle_, object, &attribute, 1);
        // A private object vanishes under our hands when another thread logs out.
        const bool objectsAnswer = result == CKR_ATTRIBUTE_TYPE_INVALID || result == CKR_ATTRIBUTE_SENSITIVE ||
                                   result == CKR_OBJECT_HANDLE_INVALID;
        failed_ = failed_ || (result != CKR_OK && !objectsAnswer);
        return result == CKR_OK || (!objectsAnswer && TokenFault(result, "C_GetAttributeValue", token_.label));
    };
    if (!read()) return {};
    if (attribute.ulValueLen == 0 || attribute.ulValueLen > kLongestAttribute)
        return {};  // also "unavailable", all ones
    Bytes value(attribute.ulValueLen);
    attribute.pValue = value.data();
    if (!read()) return {};
    value.resize(std::min<std::size_t>(value.size(), attribute.ulValueLen));
    return value;
}

std::optional<CK_ULONG> Pkcs11Session::Number(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const {
    const Bytes value = Attribute(object, type);
    CK_ULONG number = 0;
    if (value.size() != sizeof number) return std::nullopt;
    std::memcpy(&number, value.data(), sizeof number);
    return number;
}

bool Pkcs11Session::Flag(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const {
    const Bytes value = Attribute(object, type);
    return value.size() == sizeof(CK_BBOOL) && value[0] != CK_FALSE;
}

}  // namespace platform::posix
