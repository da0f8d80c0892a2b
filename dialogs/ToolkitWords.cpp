#include "dialogs/ToolkitWords.h"

#include <array>
#include <string_view>

namespace dialogs {
namespace {

struct Word {
    std::string_view context, text;
    const char16_t* bulgarian;
};

constexpr auto kWords = std::to_array<Word>({
    {"QAbstractFileIconProvider", "Alias", u"Псевдоним"},
    {"QAbstractFileIconProvider", "Drive", u"Устройство"},
    {"QAbstractFileIconProvider", "File", u"Файл"},
    {"QAbstractFileIconProvider", "File Folder", u"Папка"},
    {"QAbstractFileIconProvider", "Folder", u"Папка"},
    {"QAbstractFileIconProvider", "Shortcut", u"Пряк път"},
    {"QAbstractFileIconProvider", "Unknown", u"Неизвестно"},
    {"QPrintDialog", "Duplex Settings Conflicts", u"Противоречие в настройките за двустранен печат"},
    {"QPrintDialog", "There are conflicts in duplex settings. Do you want to fix them?",
     u"Настройките за двустранен печат си противоречат. Да се поправят ли?"},
    {"QPrintPropertiesDialog", "Advanced Option Conflicts", u"Противоречие в допълнителните настройки"},
    {"QPrintPropertiesDialog", "Page Setup Conflicts", u"Противоречие в настройките на страницата"},
    {"QPrintPropertiesDialog", "There are conflicts in page setup options. Do you want to fix them?",
     u"Настройките на страницата си противоречат. Да се поправят ли?"},
    {"QPrintPropertiesDialog", "There are conflicts in some advanced options. Do you want to fix them?",
     u"Някои допълнителни настройки си противоречат. Да се поправят ли?"},
    {"QPrintPropertiesWidget", "Advanced", u"Допълнителни"},
    {"QPrintPropertiesWidget", "There are conflicts in some options. Please fix them.",
     u"Някои настройки си противоречат. Моля, поправете ги."},
    {"QPrintSettingsOutput", "Double Sided Printing", u"Двустранен печат"},
    {"QPrintSettingsOutput", "Long side binding", u"Подшиване по дългата страна"},
    {"QPrintSettingsOutput", "Off", u"Изключен"},
    {"QPrintSettingsOutput", "Short side binding", u"Подшиване по късата страна"},
});

}  // namespace

QString ToolkitWords::translate(const char* context, const char* text, const char*, int) const {
    for (const auto& word : kWords)
        if (word.context == context && word.text == text) return QString::fromUtf16(word.bulgarian);
    return {};
}

}  // namespace dialogs
