/// What somebody would write by hand: the peers of the table's benchmarks.
///
/// Opening: the rows of the first screen and the number of all by SQLite's C API on the very same file (pragmas and
/// cache as in plain_sqlite.h), and a QTableView without rows, with the same columns, size and row height.
/// Drawing: that QTableView over a model of 1,000,000 rows of constant texts, about as long as ours. Fusion style and
/// palette, no style sheet, no grid, no row numbers, alternating rows, rows of a fixed height.
#pragma once

#include <QAbstractTableModel>
#include <QTableView>

#include <sqlite3.h>

namespace plain {

class ConstantTexts : public QAbstractTableModel
{
public:
    /// The headers and the texts of one row.
    ConstantTexts(QStringList headers, QStringList texts, int rows);
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    const QStringList m_headers, m_texts;
    const int m_rows;
};

/// Laid out as above; the caller sets the model and shows it.
void arrange(QTableView &view, const QList<int> &widths, int rowHeight);

/// Keys of the newest tracks, so many, and the number of all of them.
class FirstScreen
{
public:
    explicit FirstScreen(const QString &path);
    ~FirstScreen();
    Q_DISABLE_COPY_MOVE(FirstScreen)
    void read(int rows);
    std::vector<qint64> keys;
    qint64 count = 0;

private:
    sqlite3 *m_database = nullptr;
};

}
