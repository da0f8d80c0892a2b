#include <map>

#include "platform/Text.h"
#include "platform/posix/SoftwareKey.h"
#include "platform/posix/Token.h"
#include "platform/posix/TokenFault.h"

namespace platform::posix {
namespace {

CK_RV GivePin(Pkcs11Session& session, CK_USER_TYPE user, std::string_view pin) {
    // Some drivers only read it, none may change it: the interface is just older than const.
    auto* text = reinterpret_cast<CK_UTF8CHAR*>(const_cast<char*>(pin.data()));
    return session.Token().Functions()->C_Login(session.Handle(), user, text, static_cast<CK_ULONG>(pin.size()));
}

// Empty: nothing was given to the token, last error set.
std::optional<CK_RV> AskAndGivePin(Pkcs11Session& session, CK_USER_TYPE user, CK_FLAGS flags) {
    PinRequest request;
    request.kind = user == CKU_CONTEXT_SPECIFIC ? PinRequest::Kind::signature : PinRequest::Kind::token;
    request.subject = ToWide(session.Token().label);
    request.lastTry = (flags & CKF_USER_PIN_FINAL_TRY) != 0;
    request.fewTriesLeft = request.lastTry || (flags & CKF_USER_PIN_COUNT_LOW) != 0;
    const auto pin = AskThreadForPin(request);
    if (!pin) return std::nullopt;
    if (pin->Empty()) {
        // A null PIN has a meaning of its own, and no token has an empty one: no try is wasted on it.
        TokenTrouble(SCARD_E_INVALID_CHV, "an empty PIN was not tried", session.Token().label);
        return std::nullopt;
    }
    return GivePin(session, user, pin->Text());
}

}  // namespace

bool LogIn(Pkcs11Session& session, CK_USER_TYPE user, bool* standing) {
    const TokenSlot& token = session.Token();
    const auto flags = token.FlagsNow();
    if (!flags) return false;
    if ((*flags & CKF_USER_PIN_LOCKED) != 0)
        return TokenTrouble(SCARD_W_CHV_BLOCKED, "the PIN is blocked and was not asked for", token.label);

    std::optional<CK_RV> result;
    if ((*flags & CKF_PROTECTED_AUTHENTICATION_PATH) != 0) {
        result = token.Functions()->C_Login(session.Handle(), user, nullptr, 0);
    } else {
        result = AskAndGivePin(session, user, *flags);
    }
    if (!result) return false;
    if (*result == CKR_USER_ALREADY_LOGGED_IN) {
        if (standing != nullptr) *standing = true;
        return true;
    }
    if (*result == CKR_OK) return true;
    TokenFault(*result, "C_Login", token.label);
    if (*result == CKR_PIN_INCORRECT) {
        // That was the last try: to say only "wrong" would send the user to type it again.
        CK_TOKEN_INFO info{};
        const bool known = token.Functions()->C_GetTokenInfo(token.slot, &info) == CKR_OK;
        SetLastError(known && (info.flags & CKF_USER_PIN_LOCKED) != 0 ? SCARD_W_CHV_BLOCKED : SCARD_W_WRONG_CHV);
    }
    return false;
}

// The logins that stand, by module and slot. Entering, leaving and logging out happen under its lock, asking for a PIN
// does not: who answers may need a key in the meantime.
struct TokenLogin::Register {
    using Key = std::pair<const CK_FUNCTION_LIST*, CK_SLOT_ID>;
    std::mutex lock;
    std::map<Key, TokenLogin*> standing;

    static Register& Get() {
        static Register& instance = *new Register;  // keys may outlive globals
        return instance;
    }
    static Key KeyOf(const TokenSlot& token) { return {token.Functions(), token.slot}; }
    TokenLogin* Find(const TokenSlot& token) {
        const auto found = standing.find(KeyOf(token));
        const bool same = found != standing.end() && found->second->session_->Token().IsSameToken(token);
        return same && found->second->Stands() ? found->second : nullptr;
    }
    // Ends a login; one that was replaced must not log out its successor.
    void End(TokenLogin* login) {
        const auto found = standing.find(KeyOf(login->session_->Token()));
        if (found != standing.end() && found->second == login) {
            standing.erase(found);
        } else {
            login->ours_ = false;
        }
        delete login;
    }
};

std::shared_ptr<TokenLogin> TokenLogin::Share(TokenLogin* login) {
    ++login->users_;
    return {login, [](TokenLogin* shared) {
                Register& logins = Register::Get();
                const std::lock_guard lock(logins.lock);
                if (--shared->users_ == 0) logins.End(shared);
            }};
}

std::shared_ptr<TokenLogin> TokenLogin::For(const TokenSlot& token) {
    Register& logins = Register::Get();
    // A second round is needed only if another thread logged out between our login and our entry.
    for (int round = 0; round < 3; ++round) {
        {
            const std::lock_guard lock(logins.lock);
            if (TokenLogin* login = logins.Find(token)) return Share(login);
        }
        auto session = Pkcs11Session::Open(token);
        if (!session) return nullptr;
        bool standing = session->IsUserLoggedIn();
        if (!standing && !LogIn(*session, CKU_USER, &standing)) return nullptr;

        const std::lock_guard lock(logins.lock);
        if (TokenLogin* login = logins.Find(token)) return Share(login);
        auto* login = new TokenLogin(std::move(session), !standing);
        if (!login->Stands()) {
            delete login;
            continue;
        }
        logins.standing[Register::KeyOf(token)] = login;
        return Share(login);
    }
    TokenTrouble(SCARD_W_RESET_CARD, "the login does not last", token.label);
    return nullptr;
}

std::unique_lock<std::mutex> TokenLogin::HoldLogouts() {
    return std::unique_lock(Register::Get().lock);
}

TokenLogin::~TokenLogin() {
    const TokenSlot& token = session_->Token();
    if (ours_ && token.modules->IsOurs()) token.Functions()->C_Logout(session_->Handle());
}

bool TokenLogin::Stands() const {
    return session_->Token().modules->IsOurs() && session_->IsUserLoggedIn();
}

}  // namespace platform::posix
