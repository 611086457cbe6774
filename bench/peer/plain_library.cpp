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
