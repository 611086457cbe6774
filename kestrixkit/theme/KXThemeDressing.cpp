#include <kestrixkit/theme/KXThemeDressing_p.h>

#include <QGuiApplication>
#include <QPalette>

#include <kestrixkit/theme/KXThemeManager.h>

using namespace Qt::StringLiterals;

namespace {

constinit KXThemeDressing themeDressing = nullptr;

}

void KXSetThemeDressing(KXThemeDressing dressing) { themeDressing = dressing; }

void KXTheme::apply(QGuiApplication &application, const std::shared_ptr<KXTheme> &theme)
{
    const QVariant palette = theme ? theme->valueForKey(u"palette"_s) : QVariant();
    if (palette.canConvert<QPalette>()) {
        if (themeDressing)
            themeDressing(application, palette.value<QPalette>());
        application.setPalette(palette.value<QPalette>());
    }
    KXThemeManager::sharedManager().setTheme(theme); // last: what follows it finds the palette
}
