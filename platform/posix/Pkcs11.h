#pragma once
// The lower floor of the token code: the modules that p11-kit knows, and owners over raw PKCS#11 calls (PKCS #11 2.40).
// Every failing call notes its reason by TokenFault.
//
// p11-kit is loaded at the first use: who signs with a software key pays neither for it nor for a reader's driver. What
// is loaded stays for the life of the process, since drivers are known to survive badly being unloaded and started
// again; ReleaseTokens lets go of it.

#include <p11-kit/pkcs11.h>
#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/Types.h"

namespace platform::posix {

// A module that is initialised. Valid while the list it came from lives.
struct Pkcs11Module {
    CK_FUNCTION_LIST* functions = nullptr;
    std::string name;  // as the configuration has it
    std::filesystem::path file;
};

class Pkcs11Modules {
  public:
    // The modules that the host's configuration names, without those that hold only trust anchors. Null with
    // SCARD_E_NO_SERVICE if the host has no p11-kit. A child of fork starts its own.
    static std::shared_ptr<const Pkcs11Modules> Load();
    // A module outside the configuration, by its path; null with the last error.
    static std::shared_ptr<const Pkcs11Modules> LoadFile(const std::filesystem::path& file);
    // The next Load starts anew; modules end when nobody uses them any more.
    static void Forget();

    [[nodiscard]] const std::vector<Pkcs11Module>& List() const { return modules_; }
    // False in a child of fork, where every handle of the parent is dead.
    [[nodiscard]] bool IsOurs() const;

    Pkcs11Modules(const Pkcs11Modules&) = delete;
    Pkcs11Modules& operator=(const Pkcs11Modules&) = delete;
    ~Pkcs11Modules();

  private:
    Pkcs11Modules();
    void Describe(CK_FUNCTION_LIST* functions);

    pid_t process_;
    CK_FUNCTION_LIST** configured_ = nullptr;  // p11-kit's own list, to be given back
    CK_FUNCTION_LIST* single_ = nullptr;
    std::vector<Pkcs11Module> modules_;
};

// A slot with a token in it, as it was when asked.
struct TokenSlot {
    std::shared_ptr<const Pkcs11Modules> modules;  // keeps the functions alive
    const Pkcs11Module* module = nullptr;
    CK_SLOT_ID slot = 0;
    CK_FLAGS flags = 0;
    std::string label, manufacturer, model, serial;  // without padding

    [[nodiscard]] CK_FUNCTION_LIST* Functions() const { return module->functions; }
    // The same token, in whatever slot it stands now.
    [[nodiscard]] bool IsSameToken(const TokenSlot& other) const;
    // The token's flags as they are now.
    [[nodiscard]] std::optional<CK_FLAGS> FlagsNow() const;
};

// Every token of the module; slots that fail are noted and left out.
std::vector<TokenSlot> TokensOf(const std::shared_ptr<const Pkcs11Modules>& modules, const Pkcs11Module& module);

// A read-only session, closed on every way out.
class Pkcs11Session {
  public:
    static std::unique_ptr<Pkcs11Session> Open(const TokenSlot& token);
    ~Pkcs11Session();
    Pkcs11Session(const Pkcs11Session&) = delete;
    Pkcs11Session& operator=(const Pkcs11Session&) = delete;

    [[nodiscard]] const TokenSlot& Token() const { return token_; }
    [[nodiscard]] CK_SESSION_HANDLE Handle() const { return handle_; }
    [[nodiscard]] bool IsUserLoggedIn() const;

    // Empty optional on failure; at most a few thousand, so that a broken driver cannot keep us for ever.
    std::optional<std::vector<CK_OBJECT_HANDLE>> Find(std::span<CK_ATTRIBUTE> wanted) const;
    // Empty if the object has none, keeps it secret or cannot say.
    [[nodiscard]] Bytes Attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const;
    [[nodiscard]] std::optional<CK_ULONG> Number(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const;
    [[nodiscard]] bool Flag(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const;
    // An attribute could not be read because the token failed, not because the object has none.
    [[nodiscard]] bool HasFailed() const { return failed_; }

  private:
    Pkcs11Session(TokenSlot token, CK_SESSION_HANDLE handle) : token_(std::move(token)), handle_(handle) {}
    TokenSlot token_;
    CK_SESSION_HANDLE handle_;
    mutable bool failed_ = false;
};

}  // namespace platform::posix
