#include <kestrixkit/theme/KXStandardTheme.h>

#include <QImageReader>
#include <QPainter>
#include <QPixmap>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>

using namespace Qt::StringLiterals;

namespace {

QLinearGradient standardGradient(const QColor &from, const QColor &to)
{
    QLinearGradient gradient(0, 0, 0, 1);
    gradient.setCoordinateMode(QGradient::ObjectMode);
    gradient.setStops({ { 0, from }, { 1, to } });
    return gradient;
}

QVariant standardFill(const QColor &from, const QColor &to) { return QVariant::fromValue(standardGradient(from, to)); }

QColor standardMix(const QColor &a, const QColor &b, float share)
{
    const auto between = [share](float from, float to) { return from + (to - from) * share; };
    return QColor::fromRgbF(
        between(a.redF(), b.redF()), between(a.greenF(), b.greenF()), between(a.blueF(), b.blueF()));
}

QColor standardWithAlpha(QColor colour, float alpha)
{
    colour.setAlphaF(alpha);
    return colour;
}

}

KXStandardTheme::KXStandardTheme(const KXThemeColours &colours)
    : m_colours(colours)
{
    setProperties();
    setControlStyles();
    setViewStyles();
}

QPalette KXStandardTheme::palette() const
{
    const KXThemeColours &c = m_colours;
    QPalette palette(c.text, c.control, c.line, c.line, c.border, c.text, c.text, c.field, c.window);
    palette.setColor(QPalette::Midlight, c.line);
    palette.setColor(QPalette::Shadow, c.line);
    palette.setColor(QPalette::AlternateBase, c.alternateRow);
    palette.setColor(QPalette::ToolTipBase, c.panel);
    palette.setColor(QPalette::ToolTipText, c.text);
    palette.setColor(QPalette::Highlight, c.selection);
    palette.setColor(QPalette::Inactive, QPalette::Highlight, c.inactiveSelection);
    palette.setColor(QPalette::HighlightedText, c.selectedText);
    palette.setColor(QPalette::PlaceholderText, c.secondaryText);
    palette.setColor(QPalette::Link, c.accent);
    palette.setColor(QPalette::LinkVisited, c.accent);
    for (const auto role : { QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::HighlightedText })
        palette.setColor(QPalette::Disabled, role, c.disabledText);
    palette.setColor(QPalette::Disabled, QPalette::Highlight, c.inactiveSelection);
    return palette;
}

QIcon KXStandardTheme::icon(const QString &file, const QColor &colour)
{
    QIcon icon;
    QImageReader reader(file);
    if (!reader.canRead()) {
        KXLogWarning(theme, "Cannot read the image %@: %@", file, reader.errorString());
        return icon;
    }
    for (const int size : { 16, 32, 64 }) {
        QImageReader sized(file);
        sized.setScaledSize({ size, size });
        QImage image = sized.read().convertToFormat(QImage::Format_ARGB32_Premultiplied);
        QPainter painter(&image);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(image.rect(), colour);
        painter.end();
        icon.addPixmap(QPixmap::fromImage(image));
    }
    return icon;
}

void KXStandardTheme::setProperties()
{
    const KXThemeColours &c = m_colours;
    setValueForKey(u"palette"_s, palette());
    setValueForKey(u"focusRingColour"_s, c.accent);
    setValueForKey(u"accentColour"_s, c.accent);
    setValueForKey(u"secondaryTextColour"_s, c.secondaryText);
    setValueForKey(u"lineColour"_s, c.line);
    setValueForKey(u"windowColour"_s, c.window);
    setValueForKey(u"panelColour"_s, c.panel);
    setValueForKey(u"messageViewTextColour"_s, c.messageText);

    setValueForKey(u"tableGridColour"_s, c.line);
    setValueForKey(u"tableHeaderTextColour"_s, c.secondaryText);
    setValueForKey(u"tableHeaderBackgroundGradient"_s, standardFill(c.panel, c.panel));
    setValueForKey(u"tableHeaderBorderColour"_s, c.line);
    setValueForKey(u"tableHeaderSortIndicatorColor"_s, c.accent);
    setValueForKey(u"tableSelectionActiveGradient"_s, standardFill(c.selection, c.selection));
    setValueForKey(u"tableSelectionInactiveGradient"_s, standardFill(c.inactiveSelection, c.inactiveSelection));
    QFont placeholder;
    placeholder.setPointSizeF(13);
    setValueForKey(u"placeholderTextFont"_s, placeholder);
    setValueForKey(u"placeholderTextColour"_s, c.secondaryText);
    setValueForKey(u"playerHeadColour"_s, c.text);
    setValueForKey(u"playerHeaderShadowColour"_s, standardWithAlpha(Qt::black, 0.6F));
    setValueForKey(
        u"playerWaveformForegroundGradient"_s, standardFill(c.accent, standardMix(c.accent, c.window, 0.35F)));
    setValueForKey(u"playerWaveformBackgroundColour"_s, c.field);
    const auto bar = [fill = c.panel, line = c.line](QPainter &painter, const QRectF &rect) {
        painter.fillRect(rect, fill);
        painter.fillRect(QRectF(rect.left(), rect.bottom() - 1, rect.width(), 1), line);
    };
    setValueForKey(u"filterBarBackgroundDrawBlock"_s, QVariant::fromValue<KXDrawBlock>(bar));
    setValueForKey(KXNavigationBarBackgroundDrawBlock, QVariant::fromValue<KXDrawBlock>(bar));
}

QVariantMap KXStandardTheme::buttonStyle(const QColor &fill, const QColor &border) const
{
    const KXThemeColours &c = m_colours;
    return {
        { u"textColor"_s, c.text },
        { u"highlightedTextColor"_s, c.text },
        { u"disabledTextColor"_s, c.disabledText },
        { u"borderColor"_s, border },
        { u"highlightedBorderColor"_s, c.border },
        { u"disabledBorderColor"_s, border.alpha() == 0 ? border : c.line },
        { u"highlightedBackgroundColor"_s, c.controlPressed },
        { u"selectedBackgroundColor"_s, c.controlPressed },
        { u"disabledBackgroundColor"_s, QColor(Qt::transparent) },
        { u"shadowColor"_s, QColor(Qt::transparent) },
        { u"backgroundGradient"_s, standardFill(fill, fill) },
        { u"highlightedBackgroundGradient"_s, standardFill(c.controlPressed, c.controlPressed) },
        { u"selectedBackgroundGradient"_s, standardFill(c.controlPressed, c.controlPressed) },
        { u"disabledBackgroundGradient"_s, standardFill(Qt::transparent, Qt::transparent) },
        { u"imageTintColor"_s, c.secondaryText },
        { u"highlightedImageTintColor"_s, c.text },
        { u"disabledImageTintColor"_s, c.disabledText },
    };
}

namespace {

QVariantMap standardWith(QVariantMap style, const QVariantMap &changes)
{
    style.insert(changes);
    return style;
}

/// Text on a filled plate, whatever its state: badges and default buttons.
QVariantMap standardFilled(const QVariantMap &button, const QColor &fill, const QColor &pressed, const QColor &text)
{
    return standardWith(button,
        { { u"textColor"_s, text }, { u"highlightedTextColor"_s, text }, { u"imageTintColor"_s, text },
            { u"highlightedImageTintColor"_s, text }, { u"borderColor"_s, QColor(Qt::transparent) },
            { u"highlightedBorderColor"_s, QColor(Qt::transparent) }, { u"highlightedBackgroundColor"_s, pressed },
            { u"selectedBackgroundColor"_s, fill }, { u"backgroundGradient"_s, standardFill(fill, fill) },
            { u"highlightedBackgroundGradient"_s, standardFill(pressed, pressed) },
            { u"selectedBackgroundGradient"_s, standardFill(fill, fill) } });
}

}

void KXStandardTheme::setControlStyles()
{
    const KXThemeColours &c = m_colours;
    const QVariantMap button = buttonStyle(c.control, c.border);
    const QVariantMap on = standardFilled(button, c.accent, standardMix(c.accent, c.text, 0.2F), c.accentText);
    setStyle(KXButtonStyles, button);
    setStyle(KXDefaultButtonStyles, on);
    setStyle(KXToolbarButtonStyles, buttonStyle(Qt::transparent, Qt::transparent));
    setStyle(KXPopUpButtonStyles,
        { { u"textColor"_s, c.text }, { u"highlightedTextColor"_s, c.text }, { u"disabledTextColor"_s, c.disabledText },
            { u"borderColor"_s, c.border }, { u"highlightedBorderColor"_s, c.border },
            { u"highlightedBackgroundColor"_s, c.controlPressed }, { u"selectedBackgroundColor"_s, c.controlPressed },
            { u"backgroundGradient"_s, standardFill(c.control, c.control) },
            { u"highlightedBackgroundGradient"_s, standardFill(c.controlPressed, c.controlPressed) },
            { u"selectedBackgroundGradient"_s, standardFill(c.controlPressed, c.controlPressed) },
            { u"imageTintColor"_s, c.secondaryText }, { u"highlightedImageTintColor"_s, c.text },
            { u"palette"_s, palette() } });
    setStyle(KXSegmentedControlStyles,
        { { u"textColor"_s, c.text }, { u"highlightedTextColor"_s, c.text }, { u"selectedTextColor"_s, c.accentText },
            { u"disabledTextColor"_s, c.disabledText }, { u"borderColor"_s, c.knob },
            { u"backgroundColor"_s, c.control }, { u"highlightedBackgroundColor"_s, c.controlPressed },
            { u"selectedBackgroundColor"_s, c.accent } });
    const QVariantMap selected { { u"backgroundColor"_s, c.selection }, { u"color"_s, c.selectedText } };
    const QVariantMap label { { u"textColor"_s, c.text }, { u"disabledTextColor"_s, c.disabledText },
        { u"highlightedTextColor"_s, c.selectedText }, { u"editingTextColor"_s, c.text },
        { u"shadow"_s, QVariant::fromValue(textShadow()) }, { u"fieldEditorSelectedTextAttributes"_s, selected },
        { u"placeholderTextColor"_s, c.secondaryText }, { u"palette"_s, palette() } };
    setStyle(KXTextFieldStyles,
        standardWith(label,
            { { u"backgroundColor"_s, c.field }, { u"borderColor"_s, c.knob },
                { u"shadow"_s, QVariant::fromValue(KXShadow()) } }));
    setStyle(KXLabelStyles, label);
    setStyle(KXSecondaryLabelStyles, standardWith(label, { { u"textColor"_s, c.secondaryText } }));
    setStyle(KXTableStyles,
        { { u"alternatingRowBackgroundColors"_s, QVariant::fromValue(tableRowBackgroundColours()) },
            { u"highlightSelectionColor"_s, c.selection },
            { u"highlightSelectionAlternateColor"_s, c.inactiveSelection }, { u"palette"_s, palette() } });
    setStyle(KXOutlineStyles, { { u"palette"_s, palette() } });
    setStyle(KXTableHeaderStyles,
        { { u"backgroundGradient"_s, standardFill(c.panel, c.panel) },
            { u"highlightedBackgroundGradient"_s, standardFill(c.control, c.control) },
            { u"topBorderColor"_s, c.panel }, { u"bottomBorderColor"_s, c.line }, { u"insetColor"_s, c.panel },
            { u"highlightedInsetColor"_s, c.control }, { u"verticalSeparatorColor"_s, c.line },
            { u"sortIndicatorColor"_s, c.accent }, { u"palette"_s, palette() } });
    setStyle(KXScrollViewStyles, { { u"borderColor"_s, c.line }, { u"palette"_s, palette() } });
    setStyle(
        KXScrollerStyles, { { u"borderColor"_s, c.line }, { u"knobColor"_s, c.knob }, { u"knobSlotColor"_s, c.row } });
    setStyle(KXSplitViewStyles, { { u"dividerColor"_s, c.line } });
    setStyle(KXProgressIndicatorStyles,
        { { u"backgroundColor"_s, c.controlPressed }, { u"borderColor"_s, QColor(Qt::transparent) },
            { u"fillGradient"_s, standardFill(c.accent, c.accent) } });
    setStyle(KXSpinningProgressIndicatorStyles, { { u"color"_s, c.accent } });
    setStyle(KXStarRatingStyles,
        { { u"color"_s, c.accent }, { u"highlightedColor"_s, standardMix(c.accent, c.text, 0.25F) },
            { u"disabledColor"_s, c.disabledText }, { u"emptyColor"_s, c.knob } });
    setStyle(KXPopoverStyles,
        { { u"backgroundGradient"_s, standardFill(c.panel, c.panel) }, { u"borderColor"_s, c.border },
            { u"palette"_s, palette() } });
    setStyle(KXToolbarStyles,
        { { u"backgroundGradient"_s, standardFill(c.panel, c.panel) }, { u"bottomBorderColor"_s, c.line } });
    setStyle(KXStatusBarStyles,
        { { u"backgroundGradient"_s, standardFill(c.panel, c.panel) }, { u"topBorderColor"_s, c.line } });
}

void KXStandardTheme::setViewStyles()
{
    const KXThemeColours &c = m_colours;
    const QVariantMap button = buttonStyle(c.control, c.border);
    const QVariantMap flat = buttonStyle(Qt::transparent, Qt::transparent);
    const QVariantMap on = standardFilled(button, c.accent, standardMix(c.accent, c.text, 0.2F), c.accentText);
    const QVariantMap badge = standardFilled(button, c.controlPressed, c.controlPressed, c.text);
    const QVariantMap selectedBadge = standardFilled(button, c.selectedText, c.selectedText, c.selection);
    const QVariantMap row { { u"selectionColor"_s, c.selection },
        { u"inactiveSelectionColor"_s, c.inactiveSelection } };
    setStyle(KXSourceListRowStyles, row);
    setStyle(KXSourceListGroupRowStyles, row);
    setStyle(KXSourceListBadgeStyles, badge);
    setStyle(KXSourceListSelectedBadgeStyles, selectedBadge);
    setStyle(KXFilterBadgeStyles, badge);
    setStyle(KXFilterSelectedBadgeStyles, selectedBadge);

    const QVariantMap label = valueForKey(KXSecondaryLabelStyles).toMap();
    setStyle(KXFilterBarFilterLabelStyles, label);
    setStyle(KXFilterBarFilterButtonStyles, button);
    setStyle(KXPlaceholderStyles, label);
    setStyle(KXFilterPresetsBarButtonStyles, flat);
    setStyle(KXFilterPresetsBarFolderButtonStyles, flat);
    const QString icons = u":/kestrixkit/icons/%1.svg"_s;
    setValueForKey(u"filterPresetsBarOverflowButtonStyles"_s,
        standardWith(flat, { { u"image"_s, icon(icons.arg(u"overflow"_s), c.secondaryText) } }));
    setStyle(KXFilterPresetsManagerOnButtonStyles, on);
    setStyle(KXFilterPresetsManagerOffButtonStyles, button);
    setValueForKey(u"filterPresetIcons"_s,
        QVariantMap { { u"folder"_s, icon(icons.arg(u"filter_set_folder"_s), c.secondaryText) },
            { u"preset"_s, icon(icons.arg(u"filter_set"_s), c.secondaryText) } });
    setStyle(KXPropertyLabelStyles, label);
    setStyle(KXPropertyEditButtonStyles, button);
    setStyle(KXPropertyEditButtonActiveStyles, on);
    setStyle(KXNavigationBarButtonStyles, flat);
    setStyle(KXNavigationBarButtonActiveStyles,
        standardWith(flat,
            { { u"textColor"_s, c.accent }, { u"highlightedTextColor"_s, c.accent }, { u"imageTintColor"_s, c.accent },
                { u"highlightedImageTintColor"_s, c.accent } }));
}

QLinearGradient KXStandardTheme::messageViewErrorGradient() const
{
    return standardGradient(m_colours.error, m_colours.error);
}
QLinearGradient KXStandardTheme::messageViewInfoGradient() const
{
    return standardGradient(m_colours.info, m_colours.info);
}
QColor KXStandardTheme::messageViewBorderColour() const { return m_colours.line; }
QLinearGradient KXStandardTheme::layeredNavigationHeaderGradient() const
{
    return standardGradient(m_colours.panel, m_colours.panel);
}
QColor KXStandardTheme::layeredNavigationHeaderLabelColour() const { return m_colours.text; }
KXShadow KXStandardTheme::layeredNavigationHeaderLabelShadow() const { return {}; }
QLinearGradient KXStandardTheme::selectionBarGradient() const
{
    return standardGradient(m_colours.panel, m_colours.panel);
}
QColor KXStandardTheme::selectionBarBorderColour() const { return m_colours.line; }
QColor KXStandardTheme::selectionBarInsetColour() const { return m_colours.inset; }
QList<QColor> KXStandardTheme::tableRowBackgroundColours() const { return { m_colours.row, m_colours.alternateRow }; }
QColor KXStandardTheme::sourceListCountHighlightedBackgroundColour() const { return m_colours.selectedText; }
QColor KXStandardTheme::sourceListCountInactiveBackgroundColour() const { return m_colours.controlPressed; }
QColor KXStandardTheme::sourceListCountActiveBackgroundColour() const { return m_colours.controlPressed; }
QColor KXStandardTheme::sourceListCountTextColour() const { return m_colours.text; }
QColor KXStandardTheme::sourceListCountHighlightedActiveTextColour() const { return m_colours.selection; }
QColor KXStandardTheme::sourceListCountHighlightedInactiveTextColour() const { return m_colours.inactiveSelection; }
QColor KXStandardTheme::textColour() const { return m_colours.text; }
QColor KXStandardTheme::highlightedTextColour() const { return m_colours.accent; }
QColor KXStandardTheme::disabledTextColour() const { return m_colours.disabledText; }
KXShadow KXStandardTheme::textShadow() const { return {}; }
QColor KXStandardTheme::borderColour() const { return m_colours.border; }
QColor KXStandardTheme::audioTypeButtonDisabledTextColour() const { return m_colours.disabledText; }
KXShadow KXStandardTheme::audioTypeDisabledTextShadow() const { return {}; }
KXDrawBlock KXStandardTheme::filterSetPresetViewDrawBlock() const
{
    return [fill = m_colours.control](QPainter &painter, const QRectF &rect) { painter.fillRect(rect, fill); };
}
KXDrawBlock KXStandardTheme::filterSetPresetPlaceholderViewDrawBlock() const
{
    return [fill = m_colours.window](QPainter &painter, const QRectF &rect) { painter.fillRect(rect, fill); };
}
