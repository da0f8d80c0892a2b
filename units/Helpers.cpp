#include "units/Helpers.h"

#include <cstring>

#include "platform/Text.h"

namespace units {
namespace {

struct TableEntry {
    unsigned id;
    std::u16string_view text;
};
constexpr TableEntry kStringTable[] = {
    {101, u"Windows sockets initialization failed."},
    {192, u"Отваря защитения файл"},
    {193, u"Съхранява защитения файл БЕЗ електронните подписи"},
    {196, u"Кликнете два пъти с мишката за да отворите защитения файл"},
    {201, u"Показва детайлна информация за удостоверението за електронен подпис"},
    {202, u"Отпечатва справка"},
    {233, u"Кликнете два пъти с мишката за да видите детайлна информация"},
    {272, u"Версия " NORVIK_VERSION_TEXT},
    {275, u"Притежател"},
    {276, u"Издател"},
    {277, u"Валиден до"},
    {285, u"Информация"},
    {288, u"Грешка"},
    {293, u"Справка"},
    {294, u"Страница %d"},
    {295, u"абвгдежзийклмнопрстуфхцчшщъьюяАБВГДЕЖЗИЙКЛМНОПРСТУФХЦЧШЩЪЬЮЯ"},
    {296, u"генерирана от ТЕСАЛИ Norvik"},
    {297, u"Детайли за електронните подписи на файл '%1'"},
    {298, u"Ниво"},
    {299, u"Подписал"},
    {300, u"Дата"},
    {301, u"Състояние"},
    {302, u"Валиден"},
    {303, u"Непроверен"},
    {305, u"Невалиден"},
    {306, u"Грешка при принтиране!\nЗа повече информация относно грешката, моля погледнете 'Norvik.log'"},
    {308, u"Следният файл не може да бъде отворен:\n%1"},
    {326, u"Моля изберете цифров сертификат."},
    {327, u"Всички файлове (*.*)|*.*||"},
    {328, u"Файлът\n%1\nне може да бъде съхранен!"},
    {329, u"Временният файл\n%1\nне може да бъде създаден!"},
    {331, u"Криптиран файл. Алгоритъм: "},
    {334, u"Отварянето на файлове от този тип не е безопасно!\nФайлът няма да бъде отворен."},
    {335, u"Предупреждение"},
    {336, u"Няма приложение асоциирано с този тип файлове."},
    {337, u"Файлът не може да бъде отворен!"},
    {338, u"Ниво %1"},
    {339, u"Неподписан файл !"},
    {340, u"Добавяне на подпис или криптиране на текущия файл"},
    {341, u"Файлът не може да бъде редактиран!"},
    {371, u"Поле"},
    {372, u"Стойност"},
    {373, u"Механизъм"},
    {374, u"Версия"},
    {375, u"Издател"},
    {376, u"Публикуван на:=%1"},
    {377, u"Обновен на"},
    {378, u"Следващо обновяване"},
    {379, u"Сериен номер:=%1"},
    {380, u"Статус:=Валиден"},
    {381, u"Статус:=Анулиран"},
    {382, u"Статус:=Непознат"},
    {383, u"Анулиран на"},
    {384, u"Причина"},
    {385, u"Няма указана причина за анулиране."},
    {386, u"Частният ключ на притежателя е компрометиран."},
    {387, u"Частният ключ на удостоверяващия център е компрометиран."},
    {388, u"Информацията в сертификата е била променена, но няма подозрения, че частния ключ е компрометиран."},
    {389, u"Сертификатът е бил заменен с друг, но няма подозрения, че частния ключ е компрометиран."},
    {390,
     u"Сертификатът вече не е необходим за целите, за които е бил издаден, но няма подозрения, че частния ключ е "
     u"компрометиран."},
    {391, u"Действието на сертификата е временно преустановено."},
    {392, u"Неразпозната причина."},
};

}  // namespace

std::u16string SourceMarkedText(std::u16string_view sourcePath, int line, std::u16string_view text) {
    const auto slash = sourcePath.find_last_of(u"/\\");
    const auto name = slash == std::u16string_view::npos ? sourcePath : sourcePath.substr(slash + 1);
    return std::u16string(name) + u":" + platform::ToWide(std::to_string(line)) + u"\r\n\r\n" + std::u16string(text);
}

std::optional<std::u16string> WideFromNarrow(const char* text) {
    constexpr std::size_t maximum = 0x3fffffff;
    if (text == nullptr) return std::nullopt;
    const std::string_view bytes(text);
    if (bytes.size() + 1 > maximum) return std::nullopt;
    return platform::MultiByteToWideChar(platform::CP_THREAD_ACP, bytes);
}

std::u16string WideFromWhat(const char* what) {
    if (const auto text = platform::MultiByteToWideChar(platform::CP_UTF8, what)) return *text;
    if (const auto text = platform::MultiByteToWideChar(platform::CP_THREAD_ACP, what)) return *text;
    return platform::ToWide(what);
}

std::u16string LoadStringW(unsigned id) {
    for (const auto& entry : kStringTable) {
        if (entry.id == id) return std::u16string(entry.text);
    }
    return {};
}

std::u16string FormatString1(unsigned id, std::u16string_view argument) {
    auto text = LoadStringW(id);
    for (auto at = text.find(u"%1"); at != std::u16string::npos; at = text.find(u"%1", at + argument.size()))
        text.replace(at, 2, argument);
    return text;
}

}  // namespace units
