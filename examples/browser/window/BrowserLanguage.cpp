#include "window/BrowserLanguage.h"

#include <QtGlobal>

#include <kestrixkit/foundation/KXTranslation.h>

using namespace Qt::StringLiterals;

/// Those of a static library are not there by themselves.
static void registerBrowserTranslations() { Q_INIT_RESOURCE(browser_translations); }

void BrowserLanguage::install()
{
    registerBrowserTranslations();
    KXTranslation::install();
    KXTranslation::install(u"browser"_s, u":/browser/translations"_s);
}
