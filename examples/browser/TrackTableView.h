#pragma once

#include <QPersistentModelIndex>
#include <QTableView>

/// The table of tracks. However rows come, go and move, the one at the top stays where it is on the screen, unless the
/// table shows its very beginning: that goes on being shown.
class TrackTableView : public QTableView
{
    Q_OBJECT
public:
    explicit TrackTableView(QWidget *parent = nullptr);

    void setModel(QAbstractItemModel *model) override;
    /// Takes over what stands in a cell's open editor.
    void commitOpenEditor();

protected:
    void updateGeometries() override;

private:
    void rememberTopRow();

    QPersistentModelIndex m_topRow; // invalid at the beginning
    int m_topOffset = 0; // pixels of it that are scrolled out
    bool m_isLayingOut = false;
};
