#pragma once
// The upper floor of the token code: a token in our words - its keys, its login and the signature of one key.

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/Keys.h"
#include "platform/posix/Native.h"
#include "platform/posix/Pkcs11.h"

namespace platform::posix {

// A key as a token shows it: a private key object, or the public one of the same pair where the private one is hidden
// until login.
struct TokenKeyObject {
    CK_OBJECT_HANDLE handle = 0;
    bool isPrivate = false;
    CK_ULONG type = 0;  // CKK_...
    Bytes id;
    std::string label;
    Bytes publicValue;  // modulus, encoded point or y, as far as the object tells it
};
// Empty if the token fails.
std::optional<std::vector<TokenKeyObject>> KeysOf(const Pkcs11Session& session);

// How surely a key on the token belongs to the certificate.
enum class KeyMatch { no, possible, sure };
KeyMatch MatchKey(const CertificateContext& certificate, ByteView certificateId, const TokenKeyObject& key);

// The user is logged in to a token while one of these lives; shared by all keys of the token in this process, because a
// token knows one login per program: every session opened meanwhile is logged in. Logs out only who logged in.
class TokenLogin {
  public:
    // The login that stands, or a new one: asks for the PIN unless the token has a pad of its own. Null on failure.
    static std::shared_ptr<TokenLogin> For(const TokenSlot& token);
    // While it is held nobody here logs out: whoever reads a token for all to see is not caught between its private
    // objects and their end.
    [[nodiscard]] static std::unique_lock<std::mutex> HoldLogouts();
    TokenLogin(const TokenLogin&) = delete;
    TokenLogin& operator=(const TokenLogin&) = delete;
    ~TokenLogin();

  private:
    struct Register;
    TokenLogin(std::unique_ptr<Pkcs11Session> session, bool ours) : session_(std::move(session)), ours_(ours) {}
    static std::shared_ptr<TokenLogin> Share(TokenLogin* login);
    // False when the card was pulled out, somebody logged out or the process forked.
    [[nodiscard]] bool Stands() const;

    std::unique_ptr<Pkcs11Session> session_;
    bool ours_;      // logs out at the end
    int users_ = 0;  // guarded by the register's lock
};

// Asks for the PIN and gives it to the token, once. `user` is CKU_USER or CKU_CONTEXT_SPECIFIC. `standing` is set if
// the user was logged in already.
bool LogIn(Pkcs11Session& session, CK_USER_TYPE user, bool* standing = nullptr);

// The key of a certificate on the token; an empty id stands for a key that was found by its value.
std::shared_ptr<PrivateKey::Impl> MakeTokenKey(TokenSlot token, Bytes keyId, CertificateContext certificate);

}  // namespace platform::posix
