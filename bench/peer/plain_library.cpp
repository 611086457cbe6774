#include "peer/plain_library.h"

#include <cstdio>
#include <cstdlib>
#include <unordered_map>

#include <sqlite3.h>

plain::PresetRows::PresetRows(const QString &storePath)
{
    if (sqlite3_open_v2(
            storePath.toUtf8().constData(), &m_database, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr)
        != SQLITE_OK)
        std::exit(1);
    sqlite3_exec(m_database, "PRAGMA cache_size=-32768", nullptr, nullptr, nullptr);
}

plain::PresetRows::~PresetRows() { sqlite3_close(m_database); }

void plain::PresetRows::fill(QStandardItemModel &model, const QIcon &folderIcon, const QIcon &presetIcon)
{
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(m_database,
            "SELECT kx_id, title, isFolder, parent FROM \"KXFilterSetPreset\" "
            "ORDER BY parent IS NOT NULL, parent, position, kx_id",
            -1, &statement, nullptr)
        != SQLITE_OK) {
        std::fprintf(stderr, "peer: %s\n", sqlite3_errmsg(m_database));
        std::exit(1);
    }
    std::unordered_map<qint64, QStandardItem *> folders;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        const bool isFolder = sqlite3_column_int(statement, 2) != 0;
        auto *const item = new QStandardItem(isFolder ? folderIcon : presetIcon,
            QString::fromUtf8(
                reinterpret_cast<const char *>(sqlite3_column_text(statement, 1)), sqlite3_column_bytes(statement, 1)));
        item->setData(isFolder, Qt::UserRole);
        const auto parent = folders.find(sqlite3_column_int64(statement, 3));
        (parent == folders.end() ? model.invisibleRootItem() : parent->second)->appendRow(item);
        if (isFolder)
            folders.emplace(sqlite3_column_int64(statement, 0), item);
        else
            m_presets.append(item);
    }
    sqlite3_finalize(statement);
}

QList<plain::PresetRows::Row> plain::PresetRows::rows()
{
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(m_database,
            "SELECT kx_id, title, isFolder, parent FROM \"KXFilterSetPreset\" ORDER BY parent, position, kx_id", -1,
            &statement, nullptr)
        != SQLITE_OK) {
        std::fprintf(stderr, "peer: %s\n", sqlite3_errmsg(m_database));
        std::exit(1);
    }
    QList<Row> rows;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        rows.append({ sqlite3_column_int64(statement, 0), sqlite3_column_int64(statement, 3),
            QString::fromUtf8(
                reinterpret_cast<const char *>(sqlite3_column_text(statement, 1)), sqlite3_column_bytes(statement, 1)),
            sqlite3_column_int(statement, 2) != 0 });
    }
    sqlite3_finalize(statement);
    return rows;
}

plain::PresetButtons::PresetButtons(PresetRows &rows, const QIcon &folderIcon, const QIcon &presetIcon)
    : m_folderIcon(folderIcon)
    , m_presetIcon(presetIcon)
    , m_rows(rows.rows())
    , m_more(this)
{
    for (qsizetype i = 0; i < m_rows.size(); ++i)
        m_levels[m_rows[i].parent].append(i);
    for (const qsizetype i : std::as_const(m_levels[0])) {
        auto *const button = new QToolButton(this);
        button->setAutoRaise(true);
        button->setText(m_rows[i].title);
        if (m_rows[i].isFolder) {
            auto *const menu = new QMenu(button);
            QObject::connect(menu, &QMenu::aboutToShow, this, [this, menu, key = m_rows[i].key] { fill(*menu, key); });
            button->setMenu(menu);
            button->setPopupMode(QToolButton::InstantPopup);
        }
        m_buttons.append(button);
    }
    QObject::connect(&m_overflow, &QMenu::aboutToShow, this, [this] {
        m_overflow.clear();
        for (qsizetype i = 0; i < m_buttons.size(); ++i) {
            if (!m_buttons[i]->isVisibleTo(this))
                add(m_overflow, m_rows[m_levels[0][i]]);
        }
    });
}

void plain::PresetButtons::add(QMenu &menu, const PresetRows::Row &row)
{
    if (!row.isFolder) {
        menu.addAction(m_presetIcon, row.title);
        return;
    }
    QMenu *const below = menu.addMenu(m_folderIcon, row.title);
    QObject::connect(below, &QMenu::aboutToShow, this, [this, below, key = row.key] { fill(*below, key); });
}

void plain::PresetButtons::fill(QMenu &menu, qint64 folder)
{
    menu.clear();
    for (const qsizetype i : std::as_const(m_levels[folder]))
        add(menu, m_rows[i]);
}

void plain::PresetButtons::resizeEvent(QResizeEvent *)
{
    int left = 0;
    bool hides = false;
    for (QToolButton *button : std::as_const(m_buttons)) {
        const QSize size = button->sizeHint();
        hides = hides || left + size.width() > width() - 30;
        button->setVisible(!hides);
        if (!hides)
            button->setGeometry(QRect(QPoint(left, 0), size));
        left += size.width() + 5;
    }
    m_more.setGeometry(width() - 30, 0, 30, 24);
    m_more.setVisible(hides);
}
