#pragma once
// The verdict on one signer of an open message.

#include <filesystem>
#include <memory>
#include <string>

#include "crypt/CryptMessage.h"
#include "src/verification/CheckCrl.h"
#include "src/verification/SignatureEntry.h"

namespace verification {

// Where and by what the CRLs that a certificate names itself are looked up; see CheckCrl.
struct CrlPlaces {
    HashRoutine hashRoutine = HashToHex;
    std::filesystem::path cacheDir, workDir;
    std::u16string alternateUrl;

    static CrlPlaces OfThisProcess();
};

// Fills the entry of the signer at this index, who was found and whose signature was checked, but for what stands in
// its timestamp. Asks
// the network where the chain's revocation needs it. Whether the chain was good by itself, before its certificate's own
// CRLs were asked.
bool VerifySigner(tessaly::CryptMessageDecode& decoder, std::uint32_t index, const platform::FoundSigner& signer,
                  SignatureEntry& entry, const CrlPlaces& places);

}  // namespace verification
