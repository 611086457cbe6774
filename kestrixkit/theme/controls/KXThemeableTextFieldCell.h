#pragma once

#include <QColor>
#include <QPalette>

#include <kestrixkit/theme/KXThemeValues.h>
#include <kestrixkit/theme/controls/KXThemeableCell.h>

/// The looks of a text field. Selected text while editing has the attributes "backgroundColor" and "color" (QColor).
/// The shadow lies behind text that is not being edited. Main thread.
class KX_UI_EXPORT KXThemeableTextFieldCell : public KXThemeableCell
{
    Q_OBJECT
    Q_PROPERTY(QColor textColor MEMBER textColor)
    Q_PROPERTY(QColor disabledTextColor MEMBER disabledTextColor)
    Q_PROPERTY(QColor highlightedTextColor MEMBER highlightedTextColor)
    Q_PROPERTY(QColor editingTextColor MEMBER editingTextColor)
    Q_PROPERTY(QColor placeholderTextColor MEMBER placeholderTextColor)
    Q_PROPERTY(QColor backgroundColor MEMBER backgroundColor)
    Q_PROPERTY(QColor borderColor MEMBER borderColor)
    Q_PROPERTY(KXShadow shadow MEMBER shadow)
    Q_PROPERTY(QVariantMap fieldEditorSelectedTextAttributes MEMBER fieldEditorSelectedTextAttributes)
public:
    explicit KXThemeableTextFieldCell(QObject *control = nullptr);

    QColor textColor, disabledTextColor;
    QColor highlightedTextColor; ///< in a row that is drawn selected
    QColor editingTextColor, placeholderTextColor, backgroundColor, borderColor;
    KXShadow shadow;
    QVariantMap fieldEditorSelectedTextAttributes;
};
