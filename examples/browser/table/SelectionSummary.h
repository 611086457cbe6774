#pragma once

#include <QObject>

#include <kestrixkit/foundation/KXDelayedCall.h>

class QLabel;
class TrackTableModel;
class TrackTableView;

/// Says of the selected rows how many they are, how long they play and how much room their files take. A library that
/// is selected as a whole is added up in pieces, while everything else goes on.
class SelectionSummary : public QObject
{
    Q_OBJECT
public:
    /// All of them outlive this. The label is hidden while fewer than two rows are selected.
    SelectionSummary(TrackTableView *table, TrackTableModel *model, QLabel *label, QObject *parent = nullptr);

private:
    void begin();
    void goOn();
    void show(bool isComplete);

    TrackTableView *const m_table;
    TrackTableModel *const m_model;
    QLabel *const m_label;
    QList<int> m_rows;
    qsizetype m_next = 0; // of the rows
    double m_seconds = 0;
    qint64 m_bytes = 0;
    KXDelayedCall m_soon { this };
};
