#include "peer/plain_table.h"

#include <QHeaderView>

namespace plain {

ConstantTexts::ConstantTexts(QStringList headers, QStringList texts, int rows)
    : m_headers(std::move(headers))
    , m_texts(std::move(texts))
    , m_rows(rows)
{
}

int ConstantTexts::rowCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : m_rows; }
int ConstantTexts::columnCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : int(m_headers.size()); }

QVariant ConstantTexts::data(const QModelIndex &index, int role) const
{
    return role == Qt::DisplayRole ? QVariant(m_texts[index.column()]) : QVariant();
}

QVariant ConstantTexts::headerData(int section, Qt::Orientation orientation, int role) const
{
    return orientation == Qt::Horizontal && role == Qt::DisplayRole ? QVariant(m_headers[section]) : QVariant();
}

void arrange(QTableView &view, const QList<int> &widths, int rowHeight)
{
    view.setShowGrid(false);
    view.setAlternatingRowColors(true);
    view.setWordWrap(false);
    view.setSelectionBehavior(QAbstractItemView::SelectRows);
    view.setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    view.setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    view.verticalHeader()->hide();
    view.verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    view.verticalHeader()->setDefaultSectionSize(rowHeight);
    for (int i = 0; i < widths.size(); ++i)
        view.setColumnWidth(i, widths[i]);
}

FirstScreen::FirstScreen(const QString &path)
{
    if (sqlite3_open_v2(path.toUtf8().constData(), &m_database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr)
        != SQLITE_OK)
        qFatal("cannot open the store");
    for (const char *pragma : { "PRAGMA journal_mode=WAL", "PRAGMA synchronous=FULL", "PRAGMA cache_size=-32768",
             "PRAGMA temp_store=MEMORY", "SELECT count(*) FROM Genre" })
        sqlite3_exec(m_database, pragma, nullptr, nullptr, nullptr);
}

FirstScreen::~FirstScreen() { sqlite3_close(m_database); }

void FirstScreen::read(int rows)
{
    sqlite3_stmt *statement = nullptr;
    sqlite3_prepare_v2(m_database, "SELECT kx_id FROM Track ORDER BY added DESC LIMIT ?", -1, &statement, nullptr);
    sqlite3_bind_int(statement, 1, rows);
    while (sqlite3_step(statement) == SQLITE_ROW)
        keys.push_back(sqlite3_column_int64(statement, 0));
    sqlite3_finalize(statement);
    sqlite3_prepare_v2(m_database, "SELECT count(*) FROM Track", -1, &statement, nullptr);
    if (sqlite3_step(statement) == SQLITE_ROW)
        count = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
}

}
