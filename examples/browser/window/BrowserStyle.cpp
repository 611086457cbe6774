#include "window/BrowserStyle.h"

#include <algorithm>
#include <cmath>

#include <QApplication>
#include <QFont>
#include <QHash>
#include <QToolTip>

#include <kestrixkit/theme/KXDarkTheme.h>
#include <kestrixkit/theme/KXLightTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/controls/KXBadge.h>

#include "window/PanelStyle.h"
#include "window/Settings.h"

using namespace Qt::StringLiterals;

const KXThemeColours &BrowserStyle::colours()
{
    if (const auto *const theme = dynamic_cast<const KXStandardTheme *>(KXThemeManager::sharedManager().theme().get()))
        return theme->colours();
    static const KXDarkTheme dark; // where nothing was applied, as in tests of a table alone
    return dark.colours();
}

namespace {

QColor styleLegible(const QColor &colour, const QColor &background, double ratio)
{
    if (BrowserStyle::contrast(colour, background) >= ratio)
        return colour;
    const float hue = colour.hslHueF(), saturation = colour.hslSaturationF(), lightness = colour.lightnessF();
    const auto of = [&](float shift) {
        return QColor::fromHslF(std::max(hue, 0.0F), saturation, std::clamp(lightness + shift, 0.0F, 1.0F));
    };
    constexpr float step = 0.02F;
    for (float shift = 0; shift <= 1; shift += step) {
        for (const QColor &near : { of(shift), of(-shift) }) {
            if (BrowserStyle::contrast(near, background) >= ratio)
                return near;
        }
    }
    return BrowserStyle::contrast(Qt::white, background) > BrowserStyle::contrast(Qt::black, background) ? Qt::white
                                                                                                         : Qt::black;
}

} // namespace

QColor BrowserStyle::row() { return colours().row; }
QColor BrowserStyle::alternateRow() { return colours().alternateRow; }
QColor BrowserStyle::selection() { return colours().selection; }
QColor BrowserStyle::text() { return colours().text; }
QColor BrowserStyle::selectedText() { return colours().selectedText; }
QColor BrowserStyle::secondaryText() { return colours().secondaryText; }
QColor BrowserStyle::missingText() { return colours().disabledText; }
QColor BrowserStyle::accent() { return colours().accent; }
QColor BrowserStyle::emptyStar() { return colours().controlPressed; }

double BrowserStyle::contrast(const QColor &a, const QColor &b)
{
    const auto luminance = [](const QColor &colour) {
        const auto linear
            = [](double part) { return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4); };
        return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) + 0.0722 * linear(colour.blueF());
    };
    const double one = luminance(a), other = luminance(b);
    return (std::max(one, other) + 0.05) / (std::min(one, other) + 0.05);
}

QColor BrowserStyle::legible(const QColor &colour, const QColor &background, double ratio)
{
    // A few colours of a theme, asked for in every cell that is painted.
    static QHash<std::pair<quint64, double>, QColor> known;
    QColor &found = known[{ quint64(colour.rgb()) << 32 | background.rgb(), ratio }];
    if (!found.isValid())
        found = styleLegible(colour, background, ratio);
    return found;
}

QColor BrowserStyle::keyColour(const MusicalKey &key)
{
    const float hue = float((key.number + 4) % 12) / 12.0F;
    const float blue = hue > 0.55F && hue < 0.80F ? 0.08F : 0.0F; // looks darker than it is
    if (!isDark())
        return QColor::fromHslF(hue, key.minor ? 0.70F : 0.85F, 0.28F + blue / 2);
    return QColor::fromHslF(hue, key.minor ? 0.58F : 0.72F, (key.minor ? 0.64F : 0.74F) + blue);
}

QString BrowserStyle::timeText(double seconds)
{
    const auto whole = qint64(seconds);
    const QString minutes = QString::number(whole / 60 % 60), rest = u"%1"_s.arg(whole % 60, 2, 10, QChar(u'0'));
    return whole < 3600 ? minutes + u':' + rest
                        : u"%1:%2:%3"_s.arg(whole / 3600).arg(minutes.rightJustified(2, u'0'), rest);
}

void BrowserStyle::apply(QApplication &application)
{
    QApplication::setStyle(new PanelStyle);
    QFont font = QApplication::font();
    font.setFamilies({ u"Inter"_s, u"Noto Sans"_s, u"Cantarell"_s, u"DejaVu Sans"_s, font.family() });
    application.setFont(font);
    KXBadgeCell::setTextFormat(&KXBadgeCell::shortText);
    setDark(Settings::darkTheme());
}

bool BrowserStyle::isDark() { return colours().window.lightnessF() < 0.5F; }

void BrowserStyle::setDark(bool dark)
{
    std::shared_ptr<KXStandardTheme> theme;
    if (dark)
        theme = std::make_shared<KXDarkTheme>();
    else
        theme = std::make_shared<KXLightTheme>();
    const QPalette palette = theme->palette();
    QApplication::setPalette(palette);
    QPalette status(palette);
    status.setColor(QPalette::WindowText, theme->colours().secondaryText);
    QApplication::setPalette(status, "QStatusBar");
    QToolTip::setPalette(palette);
    KXThemeManager::sharedManager().setTheme(theme); // last: what follows it finds the palette
}
