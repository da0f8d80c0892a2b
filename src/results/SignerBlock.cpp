#include "src/results/SignerBlock.h"

#include "platform/Text.h"
#include "src/results/SignatureState.h"

namespace results {
namespace {

void AddLine(std::string& block, const char* label, const std::u16string& value) {
    block += std::string("     ") + label + ": " + platform::OneLineUtf8(value) + "\n";
}

// The word alone says little of what is wrong.
std::u16string Judged(std::uint32_t status, const std::u16string& message) {
    const auto word = StateWord(tessaly::ClassifyStatus(status));
    return message.empty() ? word : word + u" - " + message;
}

std::u16string TimestampText(const verification::SignatureEntry& entry) {
    auto text = entry.timestampTimeText.empty() ? std::u16string(u"има, без прочетено време") : entry.timestampTimeText;
    if (!entry.timestampIssuer.empty()) text += u", издател " + entry.timestampIssuer;
    return text;
}

}  // namespace

std::string SignerBlock(const verification::SignatureEntry& entry, std::size_t number) {
    const auto name = SignerName(entry);
    auto block = "  " + std::to_string(number) + ". " +
                 (name.empty() ? "(сертификат без име)" : platform::OneLineUtf8(name)) + "\n";
    AddLine(block, "време според подписалия", entry.signingTime > 0 ? entry.signingTimeText : u"не е посочено");
    if (entry.hasTimestamp) AddLine(block, "печат за време", TimestampText(entry));
    AddLine(block, "подпис", Judged(entry.signStatus, entry.signMessage));
    AddLine(block, "сертификат", Judged(entry.certStatus, entry.certMessage));
    if (entry.certTimeValidity != 0)
        AddLine(block, "срок на сертификата", entry.certTimeValidity < 0 ? u"още не е започнал" : u"изтекъл");
    if (!entry.comment.empty()) AddLine(block, "коментар", entry.comment);
    return block;
}

}  // namespace results
