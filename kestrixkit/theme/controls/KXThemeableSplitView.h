#pragma once

#include <QSplitter>

#include <kestrixkit/theme/controls/KXThemed.h>

/// A splitter with a line as divider. The divider takes the focus by Tab and moves with the arrow keys. Main thread.
class KX_UI_EXPORT KXThemeableSplitView : public KXThemed<QSplitter>
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QColor dividerColor READ dividerColour WRITE setDividerColour)
public:
    explicit KXThemeableSplitView(Qt::Orientation orientation = Qt::Horizontal, QWidget *parent = nullptr);

    [[nodiscard]] QColor dividerColour() const { return m_dividerColour; }
    void setDividerColour(const QColor &colour);

protected:
    QSplitterHandle *createHandle() override;

private:
    friend class KXSplitHandle;
    void move(int handle, int position) { moveSplitter(position, handle); }
    QColor m_dividerColour;
};
