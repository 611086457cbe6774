#pragma once

#include <memory>
#include <optional>

#include <QBrush>
#include <QFont>
#include <QHash>
#include <QLinearGradient>

#include <kestrixkit/foundation/KXObservable.h>
#include <kestrixkit/theme/KXThemeValues.h>

QT_BEGIN_NAMESPACE
class QGuiApplication;
QT_END_NAMESPACE

/// The looks of the framework's views: colours, gradients, fonts, shadows, textures, drawing routines and styles.
///
/// A host derives from it and overrides what it wants to look different, or makes one and configures it by
/// setValueForKey(). Everything is also found by name: valueForKey(u"textColour"), valueForKey(u"sourceListRowStyles"),
/// valueForKeyPath(u"filterPresetIcons.folder"). A name that the theme does not know answers an invalid value.
///
/// A style is a QVariantMap from key paths of a control to the values to set there; see KXThemeable. Gradients run from
/// top to bottom of what they fill (QGradient::ObjectMode). What the base class builds is shared by all themes and
/// never given back. Main thread.
class KX_CORE_EXPORT KXTheme : public KXObservable
{
public:
    KXTheme();
    ~KXTheme() override;
    Q_DISABLE_COPY_MOVE(KXTheme)

    /// Makes the theme the process's (see KXThemeManager) and dresses the whole application in it: its "palette", and,
    /// in an application of widgets that links KestrixKit::UI, tool tips and the style that draws menus, headers,
    /// scroll bars and all else that is not themed. May be called again at any time, with another theme; none takes the
    /// theme away and leaves the rest.
    ///
    ///     KXTheme::apply(application, std::make_shared<KXDarkTheme>());
    static void apply(QGuiApplication &application, const std::shared_ptr<KXTheme> &theme);

    // Textures, to be added (QPainter::CompositionMode_Plus) over a background as a faint grain.
    [[nodiscard]] virtual QBrush noisePattern() const;
    [[nodiscard]] virtual QBrush extraNoisyPattern() const;

    // Message strip
    [[nodiscard]] virtual QLinearGradient messageViewErrorGradient() const;
    [[nodiscard]] virtual QLinearGradient messageViewInfoGradient() const;
    [[nodiscard]] virtual QColor messageViewBorderColour() const;

    // Headers of layered navigation
    [[nodiscard]] virtual QLinearGradient layeredNavigationHeaderGradient() const;
    [[nodiscard]] virtual QColor layeredNavigationHeaderLabelColour() const;
    [[nodiscard]] virtual QFont layeredNavigationHeaderLabelFont() const;
    [[nodiscard]] virtual KXShadow layeredNavigationHeaderLabelShadow() const;

    // Selection bar
    [[nodiscard]] virtual QLinearGradient selectionBarGradient() const;
    [[nodiscard]] virtual QColor selectionBarBorderColour() const;
    [[nodiscard]] virtual QColor selectionBarInsetColour() const;

    // Tables. Those that follow the row backgrounds are absent unless a host's theme has them.
    [[nodiscard]] virtual QList<QColor> tableRowBackgroundColours() const;
    [[nodiscard]] virtual QColor tableGridColour() const;
    [[nodiscard]] virtual QColor tableHeaderTextColour() const;
    [[nodiscard]] virtual std::optional<QLinearGradient> tableHeaderBackgroundGradient() const;
    [[nodiscard]] virtual QColor tableHeaderBorderColour() const;
    [[nodiscard]] virtual QColor tableHeaderSortIndicatorColor() const;
    [[nodiscard]] virtual std::optional<QLinearGradient> tableSelectionActiveGradient() const;
    [[nodiscard]] virtual std::optional<QLinearGradient> tableSelectionInactiveGradient() const;

    // Counts in the source list
    [[nodiscard]] virtual QColor sourceListCountHighlightedBackgroundColour() const;
    [[nodiscard]] virtual QColor sourceListCountInactiveBackgroundColour() const;
    [[nodiscard]] virtual QColor sourceListCountActiveBackgroundColour() const;
    [[nodiscard]] virtual QColor sourceListCountTextColour() const;
    [[nodiscard]] virtual QColor sourceListCountHighlightedActiveTextColour() const;
    [[nodiscard]] virtual QColor sourceListCountHighlightedInactiveTextColour() const;

    // Text and borders
    [[nodiscard]] virtual QColor textColour() const;
    [[nodiscard]] virtual QFont textFont() const;
    [[nodiscard]] virtual QColor highlightedTextColour() const;
    [[nodiscard]] virtual QColor disabledTextColour() const;
    [[nodiscard]] virtual KXShadow textShadow() const;
    [[nodiscard]] virtual QColor borderColour() const;

    // Audio types
    [[nodiscard]] virtual QFont audioTypeButtonFont() const;
    [[nodiscard]] virtual QColor audioTypeButtonTextColour() const;
    [[nodiscard]] virtual QColor audioTypeButtonDisabledTextColour() const;
    [[nodiscard]] virtual KXShadow audioTypeTextShadow() const;
    [[nodiscard]] virtual KXShadow audioTypeDisabledTextShadow() const;
    [[nodiscard]] virtual QColor audioTypeButtonMixColour() const;
    [[nodiscard]] virtual QColor audioTypeButtonTrackColour() const;
    [[nodiscard]] virtual QColor audioTypeButtonStemColour() const;
    [[nodiscard]] virtual QColor audioTypeButtonPartColour() const;
    [[nodiscard]] virtual QColor audioTypeButtonLoopColour() const;
    [[nodiscard]] virtual QColor audioTypeButtonOneShotColour() const;
    [[nodiscard]] virtual QColor audioTypeButtonSFXColour() const;

    // Presets and filters; the filter bar's background is absent unless a host's theme has it.
    [[nodiscard]] virtual KXDrawBlock filterSetPresetViewDrawBlock() const;
    [[nodiscard]] virtual KXDrawBlock filterSetPresetPlaceholderViewDrawBlock() const;
    [[nodiscard]] virtual KXDrawBlock filterBarBackgroundDrawBlock() const;

    // Placeholders and the player: absent unless a host's theme has them.
    [[nodiscard]] virtual std::optional<QFont> placeholderTextFont() const;
    [[nodiscard]] virtual QColor placeholderTextColour() const;
    [[nodiscard]] virtual QColor playerHeadColour() const;
    [[nodiscard]] virtual QColor playerHeaderShadowColour() const;
    [[nodiscard]] virtual std::optional<QLinearGradient> playerWaveformForegroundGradient() const;
    [[nodiscard]] virtual QColor playerWaveformBackgroundColour() const;

    /// A property above, what was set under the name, or invalid.
    [[nodiscard]] QVariant valueForKey(const QString &key) const override;
    /// Sets a style (a QVariantMap), a drawing routine (KXDrawBlock), one of the properties that are absent at first or
    /// anything else that views look up by name; an invalid value removes it. False for the properties that the base
    /// class computes: those are overridden. Configure a theme before it is shown; views look again when it is set.
    bool setValueForKey(const QString &key, const QVariant &value) override;

private:
    template <typename T> [[nodiscard]] std::optional<T> stored(QLatin1StringView key) const;
    [[nodiscard]] QColor storedColour(QLatin1StringView key) const;

    QHash<QString, QVariant> m_values;
};
