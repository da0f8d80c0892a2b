#include "src/ProgressDlg.h"

#include <utility>

#include "crypt/CryptMessage.h"
#include "platform/Text.h"
#include "src/Norvik.h"
#include "units/Helpers.h"

namespace {

using namespace std::chrono_literals;
constexpr auto kWait = 300ms;
constexpr auto kPause = 50ms;  // between two pictures of the state: drawing must not cost more than the work

constexpr std::u16string_view kSource = u"src/ProgressDlg";

std::uint32_t TypeOf(tessaly::CryptMessageDecode& decoder, bool read, int line) {
    const auto type = read ? decoder.GetParam(platform::CMSG_TYPE_PARAM) : std::nullopt;
    if (!type) LogError(units::SourceMarkedText(kSource, line, decoder.GetErrorText()));
    return type.value_or(0);
}

}  // namespace

DelayedProgress::DelayedProgress(ui::UserInterface& interface, std::u16string file)
    : interface_(interface), file_(std::move(file)), next_(Clock::now() + kWait) {}

void DelayedProgress::Update(std::uint64_t done, std::uint64_t total) {
    const auto now = Clock::now();
    if (now < next_) return;
    next_ = now + kPause;
    if (!std::exchange(asked_, true)) shown_ = interface_.ShowProgress(file_);
    if (shown_) shown_->Update(done, total);
}

std::uint32_t GetMessageType(platform::ByteView message, std::uint32_t flags, platform::ByteView detachedData) {
    tessaly::CryptMessageDecode decoder;
    bool read = decoder.OpenToDecode(flags) && decoder.Update(message, true);
    if ((flags & platform::CMSG_DETACHED_FLAG) != 0) read = read && decoder.Update(detachedData, true);
    return TypeOf(decoder, read, __LINE__);
}

std::uint32_t GetFileMessageType(const std::filesystem::path& file, ui::UserInterface& interface) {
    auto input = platform::InputFile::Open(file);
    if (!input) {
        const std::u16string name = platform::ToWide(file.native());
        LogError(u"Failed to open: " + name);
        interface.ShowMessage({units::FormatString1(308, name), units::LoadStringW(288), ui::Message::Icon::error});
        return 0;
    }
    tessaly::CryptMessageDecode decoder;
    const bool read =
        decoder.OpenToDecode(0) && decoder.Update(std::make_shared<platform::FileSource>(std::move(*input)));
    return TypeOf(decoder, read, __LINE__);
}
