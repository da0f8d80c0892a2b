#pragma once
// What the commands on signed files share: how a file is judged and how the verdict is told.

#include <memory>
#include <optional>
#include <string>

#include "src/verification/SignatureEntry.h"
#include "src/verification/SignedFile.h"
#include "src/verification/VerifySignature.h"
#include "toolkit/cms/Findings.h"

namespace cli {

// Exit status where nothing is bad but not everything could be checked.
constexpr int kUnchecked = 3;

enum class Verdict { good, unchecked, bad };
int StatusOf(Verdict verdict);

struct JudgedFile {
    std::string name;
    std::shared_ptr<platform::ByteSource> message = {};  // decoded, if the file is text
    verification::SignatureEntries entries = {};
    std::shared_ptr<const toolkit::cms::Findings> findings = {};  // may be null
    std::string fault = {};                                       // why it was not judged to its end; empty: it was
    Verdict verdict = Verdict::bad;
};

// The bytes of a message in any of the forms, binary, PEM or Base64. Throws std::runtime_error if the file does not
// open.
std::shared_ptr<platform::ByteSource> OpenMessage(const std::filesystem::path& file);

// Judges a file in any of the forms, binary, PEM or Base64. The data of a detached signature are those named, else what
// stands beside it under its name without the extension; named data count for a file that holds content, too. Throws
// std::runtime_error for a file that cannot be read and WrongUse for data that are not there.
JudgedFile Judge(const std::string& file, const std::optional<std::string>& data);
// The same for a file that must hold its content; throws std::runtime_error if it does not.
JudgedFile JudgeAttached(const std::string& file);

// Why a message cannot be used, for a person.
std::string FaultText(const verification::MessageFault& fault);

// The signature's value and form, the certificate and the timestamps. A signature is good only if all of them are.
Verdict VerdictOn(const verification::SignatureEntry& entry, const toolkit::cms::SignerFindings* findings);
// The worst of them; bad if there is none.
Verdict VerdictOn(const verification::SignatureEntries& entries, const toolkit::cms::Findings* findings);
// Whether the content is what every signer signed, whatever their certificates are.
bool SignedByAll(const JudgedFile& file);

// A line for the file and a few for each signer.
std::string VerdictBlock(const JudgedFile& file);

}  // namespace cli
