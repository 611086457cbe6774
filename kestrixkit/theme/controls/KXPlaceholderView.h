#pragma once

#include <kestrixkit/theme/controls/KXThemeableView.h>

QT_BEGIN_NAMESPACE
class QLabel;
QT_END_NAMESPACE

/// Says in the place of a view why there is nothing to see. The style's "textColor" is the text's. Main thread.
class KX_UI_EXPORT KXPlaceholderView : public KXThemeableView
{
    Q_OBJECT
    Q_PROPERTY(QString text READ text WRITE setText)
    Q_PROPERTY(QColor textColor READ textColour WRITE setTextColour)
public:
    explicit KXPlaceholderView(QWidget *parent = nullptr);

    [[nodiscard]] QLabel *label() const { return m_label; }
    [[nodiscard]] QString text() const;
    void setText(const QString &text);
    [[nodiscard]] QColor textColour() const;
    void setTextColour(const QColor &colour);

private:
    QLabel *m_label;
};
