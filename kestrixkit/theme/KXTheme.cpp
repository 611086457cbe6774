#include <kestrixkit/theme/KXTheme.h>

#include <cstdlib>

#include <QImage>
#include <QPainter>
#include <QPalette>

using namespace Qt::StringLiterals;

namespace {

QColor themeWhite(float white, float alpha = 1) { return QColor::fromRgbF(white, white, white, alpha); }

QLinearGradient themeGradient(const QColor &from, const QColor &to)
{
    QLinearGradient gradient(0, 0, 0, 1);
    gradient.setCoordinateMode(QGradient::ObjectMode);
    gradient.setStops({ { 0, from }, { 1, to } });
    return gradient;
}

QFont themeBoldFont(qreal points)
{
    QFont font;
    font.setPointSizeF(points);
    font.setBold(true);
    return font;
}

// 128 by 128 grey points from the standard generator seeded with 124. It is the C library's own, with a state of ours:
// reseeding the process's would repeat the numbers of whoever else uses it.
QBrush themeNoise(double factor)
{
    random_data data = {};
    char state[128] = {};
    initstate_r(124, state, sizeof state, &data);
    QImage tile(128, 128, QImage::Format_Grayscale8);
    for (int y = 0; y < tile.height(); ++y) {
        uchar *line = tile.scanLine(y);
        for (int x = 0; x < tile.width(); ++x) {
            int32_t random = 0;
            random_r(&data, &random);
            line[x] = uchar((random % 256) * factor);
        }
    }
    return QBrush(tile);
}

/// What `make` answers, made once for the process. Never destroyed: brushes and fonts must not outlive the application.
template <typename Make> const auto &themeOnce(Make make)
{
    static const auto *const value = new auto(make());
    return *value;
}

// Absent values are invalid in a variant.
QVariant themeVariant(const QColor &colour) { return colour.isValid() ? QVariant(colour) : QVariant(); }
QVariant themeVariant(const KXDrawBlock &block) { return block ? QVariant::fromValue(block) : QVariant(); }
template <typename T> QVariant themeVariant(const std::optional<T> &value)
{
    return value ? QVariant::fromValue(*value) : QVariant();
}
template <typename T> QVariant themeVariant(const T &value) { return QVariant::fromValue(value); }

struct ThemeProperty
{
    QVariant (*read)(const KXTheme &theme);
    bool isStored; ///< no value of its own
};

template <auto accessor> QVariant themeRead(const KXTheme &theme) { return themeVariant((theme.*accessor)()); }

#define KX_THEME_COMPUTED(name)                                                                                        \
    {                                                                                                                  \
        u"" #name##_s, { &themeRead<&KXTheme::name>, false }                                                           \
    }
#define KX_THEME_STORED(name)                                                                                          \
    {                                                                                                                  \
        u"" #name##_s, { &themeRead<&KXTheme::name>, true }                                                            \
    }

const QHash<QString, ThemeProperty> &themeProperties()
{
    static const QHash<QString, ThemeProperty> properties {
        KX_THEME_COMPUTED(noisePattern),
        KX_THEME_COMPUTED(extraNoisyPattern),
        KX_THEME_COMPUTED(messageViewErrorGradient),
        KX_THEME_COMPUTED(messageViewInfoGradient),
        KX_THEME_COMPUTED(messageViewBorderColour),
        KX_THEME_COMPUTED(layeredNavigationHeaderGradient),
        KX_THEME_COMPUTED(layeredNavigationHeaderLabelColour),
        KX_THEME_COMPUTED(layeredNavigationHeaderLabelFont),
        KX_THEME_COMPUTED(layeredNavigationHeaderLabelShadow),
        KX_THEME_COMPUTED(selectionBarGradient),
        KX_THEME_COMPUTED(selectionBarBorderColour),
        KX_THEME_COMPUTED(selectionBarInsetColour),
        KX_THEME_COMPUTED(tableRowBackgroundColours),
        KX_THEME_COMPUTED(sourceListCountHighlightedBackgroundColour),
        KX_THEME_COMPUTED(sourceListCountInactiveBackgroundColour),
        KX_THEME_COMPUTED(sourceListCountActiveBackgroundColour),
        KX_THEME_COMPUTED(sourceListCountTextColour),
        KX_THEME_COMPUTED(sourceListCountHighlightedActiveTextColour),
        KX_THEME_COMPUTED(sourceListCountHighlightedInactiveTextColour),
        KX_THEME_COMPUTED(textColour),
        KX_THEME_COMPUTED(textFont),
        KX_THEME_COMPUTED(highlightedTextColour),
        KX_THEME_COMPUTED(disabledTextColour),
        KX_THEME_COMPUTED(textShadow),
        KX_THEME_COMPUTED(borderColour),
        KX_THEME_COMPUTED(audioTypeButtonFont),
        KX_THEME_COMPUTED(audioTypeButtonTextColour),
        KX_THEME_COMPUTED(audioTypeButtonDisabledTextColour),
        KX_THEME_COMPUTED(audioTypeTextShadow),
        KX_THEME_COMPUTED(audioTypeDisabledTextShadow),
        KX_THEME_COMPUTED(audioTypeButtonMixColour),
        KX_THEME_COMPUTED(audioTypeButtonTrackColour),
        KX_THEME_COMPUTED(audioTypeButtonStemColour),
        KX_THEME_COMPUTED(audioTypeButtonPartColour),
        KX_THEME_COMPUTED(audioTypeButtonLoopColour),
        KX_THEME_COMPUTED(audioTypeButtonOneShotColour),
        KX_THEME_COMPUTED(audioTypeButtonSFXColour),
        KX_THEME_COMPUTED(filterSetPresetViewDrawBlock),
        KX_THEME_COMPUTED(filterSetPresetPlaceholderViewDrawBlock),
        KX_THEME_STORED(tableGridColour),
        KX_THEME_STORED(tableHeaderTextColour),
        KX_THEME_STORED(tableHeaderBackgroundGradient),
        KX_THEME_STORED(tableHeaderBorderColour),
        KX_THEME_STORED(tableHeaderSortIndicatorColor),
        KX_THEME_STORED(tableSelectionActiveGradient),
        KX_THEME_STORED(tableSelectionInactiveGradient),
        KX_THEME_STORED(placeholderTextFont),
        KX_THEME_STORED(placeholderTextColour),
        KX_THEME_STORED(playerHeadColour),
        KX_THEME_STORED(playerHeaderShadowColour),
        KX_THEME_STORED(playerWaveformForegroundGradient),
        KX_THEME_STORED(playerWaveformBackgroundColour),
        KX_THEME_STORED(filterBarBackgroundDrawBlock),
    };
    return properties;
}

}

KXTheme::KXTheme() = default;
KXTheme::~KXTheme() = default;

QBrush KXTheme::noisePattern() const
{
    return themeOnce([] { return themeNoise(0.018); });
}
QBrush KXTheme::extraNoisyPattern() const
{
    return themeOnce([] { return themeNoise(0.023); });
}

// From a colour to itself: the strip is flat, painted through the gradient all the same.
QLinearGradient KXTheme::messageViewErrorGradient() const
{
    const QColor colour = QColor::fromRgbF(0.996F, 0.337F, 0.251F);
    return themeGradient(colour, colour);
}
QLinearGradient KXTheme::messageViewInfoGradient() const
{
    const QColor colour = QColor::fromRgbF(1.0F, 0.588F, 0.145F);
    return themeGradient(colour, colour);
}
QColor KXTheme::messageViewBorderColour() const { return QColor(45, 45, 45); }

QLinearGradient KXTheme::layeredNavigationHeaderGradient() const
{
    return themeGradient(themeWhite(0.2F), themeWhite(0.28F));
}
QColor KXTheme::layeredNavigationHeaderLabelColour() const { return themeWhite(0.9F); }
QFont KXTheme::layeredNavigationHeaderLabelFont() const
{
    return themeOnce([] { return themeBoldFont(16); });
}
KXShadow KXTheme::layeredNavigationHeaderLabelShadow() const { return { themeWhite(0, 0.35F), { -1, 0 }, 1 }; }

QLinearGradient KXTheme::selectionBarGradient() const { return themeGradient(themeWhite(0.85F), themeWhite(0.93F)); }
QColor KXTheme::selectionBarBorderColour() const { return themeWhite(0.6F); }
QColor KXTheme::selectionBarInsetColour() const { return themeWhite(1, 0.51F); }

QList<QColor> KXTheme::tableRowBackgroundColours() const { return { themeWhite(0.942F), themeWhite(0.96F) }; }
QColor KXTheme::tableGridColour() const { return storedColour("tableGridColour"_L1); }
QColor KXTheme::tableHeaderTextColour() const { return storedColour("tableHeaderTextColour"_L1); }
std::optional<QLinearGradient> KXTheme::tableHeaderBackgroundGradient() const
{
    return stored<QLinearGradient>("tableHeaderBackgroundGradient"_L1);
}
QColor KXTheme::tableHeaderBorderColour() const { return storedColour("tableHeaderBorderColour"_L1); }
QColor KXTheme::tableHeaderSortIndicatorColor() const { return storedColour("tableHeaderSortIndicatorColor"_L1); }
std::optional<QLinearGradient> KXTheme::tableSelectionActiveGradient() const
{
    return stored<QLinearGradient>("tableSelectionActiveGradient"_L1);
}
std::optional<QLinearGradient> KXTheme::tableSelectionInactiveGradient() const
{
    return stored<QLinearGradient>("tableSelectionInactiveGradient"_L1);
}

QColor KXTheme::sourceListCountHighlightedBackgroundColour() const { return themeWhite(1); }
QColor KXTheme::sourceListCountInactiveBackgroundColour() const { return QColor::fromRgbF(0.596F, 0.647F, 0.698F); }
QColor KXTheme::sourceListCountActiveBackgroundColour() const { return QColor::fromRgbF(0.596F, 0.647F, 0.698F); }
QColor KXTheme::sourceListCountTextColour() const { return themeWhite(1); }
QColor KXTheme::sourceListCountHighlightedActiveTextColour() const { return QColor::fromRgbF(0.349F, 0.631F, 0.859F); }
QColor KXTheme::sourceListCountHighlightedInactiveTextColour() const { return QColor::fromRgbF(0.62F, 0.659F, 0.769F); }

QColor KXTheme::textColour() const { return themeWhite(0.2F); }
QFont KXTheme::textFont() const
{
    return themeOnce([] { return themeBoldFont(12); });
}
QColor KXTheme::highlightedTextColour() const { return themeWhite(0.3F); }
QColor KXTheme::disabledTextColour() const { return themeWhite(0.5F); }
KXShadow KXTheme::textShadow() const { return { themeWhite(1, 0.85F), { 0, -1 }, 1 }; }
QColor KXTheme::borderColour() const { return themeWhite(0.6F); }

QFont KXTheme::audioTypeButtonFont() const
{
    return themeOnce([] { return themeBoldFont(12); });
}
QColor KXTheme::audioTypeButtonTextColour() const { return themeWhite(0.98F); }
QColor KXTheme::audioTypeButtonDisabledTextColour() const { return themeWhite(0.5F); }
KXShadow KXTheme::audioTypeTextShadow() const { return { themeWhite(0, 0.15F), { 0, 1 }, 1 }; }
KXShadow KXTheme::audioTypeDisabledTextShadow() const { return { themeWhite(1, 0.85F), { 0, -1 }, 1 }; }
QColor KXTheme::audioTypeButtonMixColour() const { return QColor::fromRgbF(0.491F, 0.566F, 0.646F); }
QColor KXTheme::audioTypeButtonTrackColour() const { return QColor::fromRgbF(0.534F, 0.048F, 0.182F); }
QColor KXTheme::audioTypeButtonStemColour() const { return QColor::fromRgbF(0.135F, 0.315F, 0.541F); }
QColor KXTheme::audioTypeButtonPartColour() const { return QColor::fromRgbF(0.456F, 0.326F, 0.111F); }
QColor KXTheme::audioTypeButtonLoopColour() const { return QColor::fromRgbF(0.927F, 0.218F, 0.187F); }
QColor KXTheme::audioTypeButtonOneShotColour() const { return QColor::fromRgbF(0.789F, 0.458F, 0.0F); }
QColor KXTheme::audioTypeButtonSFXColour() const { return QColor::fromRgbF(0.366F, 0.665F, 0.192F); }

KXDrawBlock KXTheme::filterSetPresetViewDrawBlock() const
{
    return [](QPainter &painter, const QRectF &rect) { painter.fillRect(rect, themeWhite(0.745F)); };
}
KXDrawBlock KXTheme::filterSetPresetPlaceholderViewDrawBlock() const
{
    return [](QPainter &painter, const QRectF &rect) { painter.fillRect(rect, QPalette().color(QPalette::Base)); };
}
KXDrawBlock KXTheme::filterBarBackgroundDrawBlock() const
{
    return stored<KXDrawBlock>("filterBarBackgroundDrawBlock"_L1).value_or(KXDrawBlock());
}

std::optional<QFont> KXTheme::placeholderTextFont() const { return stored<QFont>("placeholderTextFont"_L1); }
QColor KXTheme::placeholderTextColour() const { return storedColour("placeholderTextColour"_L1); }
QColor KXTheme::playerHeadColour() const { return storedColour("playerHeadColour"_L1); }
QColor KXTheme::playerHeaderShadowColour() const { return storedColour("playerHeaderShadowColour"_L1); }
std::optional<QLinearGradient> KXTheme::playerWaveformForegroundGradient() const
{
    return stored<QLinearGradient>("playerWaveformForegroundGradient"_L1);
}
QColor KXTheme::playerWaveformBackgroundColour() const { return storedColour("playerWaveformBackgroundColour"_L1); }

QVariant KXTheme::valueForKey(const QString &key) const
{
    const auto property = themeProperties().constFind(key);
    return property == themeProperties().constEnd() ? m_values.value(key) : property->read(*this);
}

bool KXTheme::setValueForKey(const QString &key, const QVariant &value)
{
    const auto property = themeProperties().constFind(key);
    if (property != themeProperties().constEnd() && !property->isStored)
        return false;
    willChangeValueForKey(key);
    if (value.isValid())
        m_values.insert(key, value);
    else
        m_values.remove(key);
    didChangeValueForKey(key);
    return true;
}

template <typename T> std::optional<T> KXTheme::stored(QLatin1StringView key) const
{
    const QVariant value = m_values.value(key);
    return value.canConvert<T>() ? std::optional(value.value<T>()) : std::nullopt;
}

QColor KXTheme::storedColour(QLatin1StringView key) const { return stored<QColor>(key).value_or(QColor()); }
