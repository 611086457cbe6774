#include "window/BrowserStyle.h"

#include <algorithm>
#include <cmath>

#include <QApplication>
#include <QFont>
#include <QHash>
#include <QStyleFactory>

#include <kestrixkit/theme/KXDarkTheme.h>
#include <kestrixkit/theme/KXLightTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/controls/KXBadge.h>

#include "window/Settings.h"

using namespace Qt::StringLiterals;

namespace {

const KXThemeColours &styleColours()
{
    if (const auto *const theme = dynamic_cast<const KXStandardTheme *>(KXThemeManager::sharedManager().theme().get()))
        return theme->colours();
    static const KXDarkTheme dark; // where nothing was applied, as in tests of a table alone
    return dark.colours();
}

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

QColor BrowserStyle::row() { return styleColours().row; }
QColor BrowserStyle::alternateRow() { return styleColours().alternateRow; }
QColor BrowserStyle::selection() { return styleColours().selection; }
QColor BrowserStyle::text() { return styleColours().text; }
QColor BrowserStyle::selectedText() { return styleColours().selectedText; }
QColor BrowserStyle::secondaryText() { return styleColours().secondaryText; }
QColor BrowserStyle::missingText() { return styleColours().disabledText; }
QColor BrowserStyle::accent() { return styleColours().accent; }
QColor BrowserStyle::emptyStar() { return styleColours().controlPressed; }

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
    QApplication::setStyle(QStyleFactory::create(u"Fusion"_s));
    QFont font = QApplication::font();
    font.setFamilies({ u"Inter"_s, u"Noto Sans"_s, u"Cantarell"_s, u"DejaVu Sans"_s, font.family() });
    application.setFont(font);
    KXBadgeCell::setTextFormat(&KXBadgeCell::shortText);
    setDark(Settings::darkTheme());
}

bool BrowserStyle::isDark() { return styleColours().window.lightnessF() < 0.5F; }

void BrowserStyle::setDark(bool dark)
{
    std::shared_ptr<KXStandardTheme> theme;
    if (dark)
        theme = std::make_shared<KXDarkTheme>();
    else
        theme = std::make_shared<KXLightTheme>();
    const KXThemeColours &c = theme->colours();
    QApplication::setPalette(theme->palette());
    qApp->setStyleSheet(uR"(
        QMenuBar { background: %1; color: %4; padding: 2px 8px; border: none; }
        QMenuBar::item { padding: 4px 10px; border-radius: 4px; background: transparent; }
        QMenuBar::item:selected { background: %6; }
        QMenu { background: %1; color: %4; border: 1px solid %7; padding: 4px; }
        QMenu::item { padding: 5px 28px 5px 20px; border-radius: 3px; }
        QMenu::item:selected { background: %8; color: %9; }
        QMenu::item:disabled { color: %5; }
        QMenu::separator { height: 1px; background: %2; margin: 4px 8px; }
        QToolBar { background: %1; border: none; border-bottom: 1px solid %2; padding: 8px 14px; spacing: 6px; }
        QStatusBar { background: %1; border-top: 1px solid %2; color: %3; min-height: 30px; }
        QStatusBar QLabel { color: %3; }
        QStatusBar::item { border: none; }
        QCheckBox::indicator { width: 14px; height: 14px; border: 1px solid %11; border-radius: 3px; background: %6; }
        QCheckBox::indicator:checked { image: url(:/kestrixkit/icons/check.svg); background: %10; border-color: %10; }
        QToolTip { background: %1; color: %4; border: 1px solid %7; padding: 4px; }
    )"_s.arg(c.panel.name(), c.line.name(), c.secondaryText.name(), c.text.name(), c.disabledText.name(),
        c.controlPressed.name(), c.border.name(), c.selection.name(), c.selectedText.name(), c.accent.name(),
        c.knob.name()));
    KXThemeManager::sharedManager().setTheme(theme); // last: what follows it finds the palette
}
