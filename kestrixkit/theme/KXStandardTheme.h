#pragma once

#include <QIcon>
#include <QPalette>

#include <kestrixkit/theme/KXTheme.h>

/// The colours that a KXStandardTheme is made of. Texts must be readable on what they lie on: `text` and
/// `secondaryText` on window, panel, control and rows, `selectedText` on both selections, `accentText` on the accent.
/// `knob` must be seen (3:1) on window, panel, control, field and rows. A value; any thread.
struct KXThemeColours
{
    QColor window; ///< behind everything
    QColor panel; ///< bars and headers
    QColor control; ///< buttons
    QColor controlPressed;
    QColor field; ///< where text is typed
    QColor row;
    QColor alternateRow;
    QColor selection;
    QColor inactiveSelection;
    QColor text;
    QColor secondaryText;
    QColor disabledText;
    QColor selectedText;
    QColor line; ///< between areas
    QColor border; ///< around controls
    QColor accent; ///< what is on, progress, stars, the focus
    QColor accentText;
    QColor error;
    QColor info;
    QColor messageText; ///< on the colours of errors and news
    QColor knob; ///< signs: knobs of scrollers, empty stars, outlines of fields, lines between segments
    QColor inset; ///< line of light
};

/// A complete theme out of a few colours: every property, and every style that the framework's views and controls ask
/// for. KXDarkTheme and KXLightTheme are two choices of colours; a host may make a third.
///
/// Beyond the properties of KXTheme it answers "palette" (QPalette, for widgets that are not themed),
/// "focusRingColour", "accentColour", "secondaryTextColour", "lineColour", "windowColour", "panelColour" and
/// "messageViewTextColour". Main thread.
class KX_CORE_EXPORT KXStandardTheme : public KXTheme
{
public:
    explicit KXStandardTheme(const KXThemeColours &colours);

    [[nodiscard]] const KXThemeColours &colours() const { return m_colours; }
    [[nodiscard]] QPalette palette() const;
    /// An icon of one colour, whatever the file's are, in any size. A file that cannot be read gives a null icon and a
    /// log line.
    [[nodiscard]] static QIcon icon(const QString &file, const QColor &colour);

    [[nodiscard]] QLinearGradient messageViewErrorGradient() const override;
    [[nodiscard]] QLinearGradient messageViewInfoGradient() const override;
    [[nodiscard]] QColor messageViewBorderColour() const override;
    [[nodiscard]] QLinearGradient layeredNavigationHeaderGradient() const override;
    [[nodiscard]] QColor layeredNavigationHeaderLabelColour() const override;
    [[nodiscard]] KXShadow layeredNavigationHeaderLabelShadow() const override;
    [[nodiscard]] QLinearGradient selectionBarGradient() const override;
    [[nodiscard]] QColor selectionBarBorderColour() const override;
    [[nodiscard]] QColor selectionBarInsetColour() const override;
    [[nodiscard]] QList<QColor> tableRowBackgroundColours() const override;
    [[nodiscard]] QColor sourceListCountHighlightedBackgroundColour() const override;
    [[nodiscard]] QColor sourceListCountInactiveBackgroundColour() const override;
    [[nodiscard]] QColor sourceListCountActiveBackgroundColour() const override;
    [[nodiscard]] QColor sourceListCountTextColour() const override;
    [[nodiscard]] QColor sourceListCountHighlightedActiveTextColour() const override;
    [[nodiscard]] QColor sourceListCountHighlightedInactiveTextColour() const override;
    [[nodiscard]] QColor textColour() const override;
    [[nodiscard]] QColor highlightedTextColour() const override;
    [[nodiscard]] QColor disabledTextColour() const override;
    [[nodiscard]] KXShadow textShadow() const override;
    [[nodiscard]] QColor borderColour() const override;
    [[nodiscard]] QColor audioTypeButtonDisabledTextColour() const override;
    [[nodiscard]] KXShadow audioTypeDisabledTextShadow() const override;
    [[nodiscard]] KXDrawBlock filterSetPresetViewDrawBlock() const override;
    [[nodiscard]] KXDrawBlock filterSetPresetPlaceholderViewDrawBlock() const override;

private:
    void setStyle(QLatin1StringView name, const QVariantMap &style) { setValueForKey(name, style); }
    void setProperties();
    void setControlStyles();
    void setViewStyles();
    [[nodiscard]] QVariantMap buttonStyle(const QColor &fill, const QColor &border) const;

    KXThemeColours m_colours;
};
