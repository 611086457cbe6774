// What KXTheme::apply() does to an application of widgets.

#include <QApplication>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>
#include <QToolTip>

#include <kestrixkit/theme/KXThemeDressing_p.h>

using namespace Qt::StringLiterals;

namespace {

/// The one style of the toolkit's own that draws everything in the colours of the palette, on every desktop.
constexpr QLatin1StringView dressingStyle { "fusion" };

void dressApplication(QGuiApplication &application, const QPalette &palette)
{
    if (!qobject_cast<QApplication *>(&application))
        return;
    if (QApplication::style()->name().compare(dressingStyle, Qt::CaseInsensitive) != 0)
        QApplication::setStyle(QStyleFactory::create(dressingStyle));
    QToolTip::setPalette(palette);
}

const bool dressingIsSet = (KXSetThemeDressing(&dressApplication), true);

}
