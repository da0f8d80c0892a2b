#include "src/settings/PrintTexts.h"

#include "src/settings/Settings.h"
#include "units/Registry.h"

namespace settings {

PrintTexts ReadPrintTexts() {
    CRegistry registry;
    registry.Open(kPrintKey, true);
    return {registry.ReadString(u"Header"), registry.ReadString(u"Footer", kDefaultFooter)};
}

void StorePrintTexts(const PrintTexts& texts) {
    CRegistry registry;
    if (!registry.Open(kPrintKey, true)) return;
    registry.WriteString(u"Header", texts.header);
    registry.WriteString(u"Footer", texts.footer);
}

}  // namespace settings
