#pragma once

#include <QObject>

class DemoHint;
class FilterStrip;
class MusicImport;
class QLabel;
class ShopPlace;
class TrackTableModel;
class TrackTableView;
class Welcome;

/// Says how many tracks the list has and what the last import skipped, and, over a list without tracks, why it has
/// none.
class ListSummary : public QObject
{
    Q_OBJECT
public:
    /// All of them outlive this. The line is where the numbers are said.
    ListSummary(TrackTableView *table, TrackTableModel *model, const FilterStrip *strip, const MusicImport *import,
        QLabel *line, QObject *parent = nullptr);

    /// While it is shown, the line says what it has. Outlives this.
    void setShop(const ShopPlace *shop);
    /// Shows itself by the first track. Outlives this.
    void setDemoHint(DemoHint *hint) { m_demoHint = hint; }
    /// Over a list without tracks.
    [[nodiscard]] Welcome *welcome() const { return m_empty; }
    /// What to say where the place that is shown has no tracks.
    void setEmptyReason(const QString &reason) { m_emptyReason = reason; }
    void update();

private:
    void showSkipped();

    TrackTableModel *const m_model;
    const FilterStrip *const m_strip;
    const MusicImport *const m_import;
    QLabel *const m_line;
    Welcome *const m_empty;
    const ShopPlace *m_shop = nullptr;
    DemoHint *m_demoHint = nullptr;
    QString m_emptyReason;
};
