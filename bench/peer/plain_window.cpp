// What somebody would write by hand to show the same store: the peer of the benchmarks of the start. A process of its
// own: a QMainWindow with a QTableView over a QSqlQueryModel, laid out as in plain_table.h, the newest tracks first.
//
//     bench_plain_window STORE            {"shown":…,"rows":…} once the window was painted
//     bench_plain_window STORE --counts   with a list of the 500 presets to the left; {"counted":…,"sum":…} once each
//     has
//                                         been counted by a statement of its own and the list was painted
//
// The statements are those that one would write for hand_rules.h by hand, for a library in which a track may have
// several genres. Qt's own style; the cache of pages is as large as ours.

#include <cstdio>

#include <QApplication>
#include <QListWidget>
#include <QMainWindow>
#include <QSplitter>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlQueryModel>

#include "peer/hand_rules.h"
#include "peer/plain_table.h"

using namespace Qt::StringLiterals;

namespace {

constexpr QSize windowSize(1440, 860); // as ours
constexpr int rowHeight = 30; // as ours

/// Calls once the view was painted, when that frame is done.
class Painted : public QObject
{
public:
    Painted(QAbstractScrollArea *view, std::function<void()> then)
        : m_then(std::move(then))
    {
        view->viewport()->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint && m_then)
            QMetaObject::invokeMethod(qApp, std::exchange(m_then, nullptr), Qt::QueuedConnection);
        return false;
    }

private:
    std::function<void()> m_then;
};

QString genresIn(uint32_t bits)
{
    QStringList names;
    for (int genre = 0; genre < hand::Genres; ++genre) {
        if (bits >> genre & 1)
            names.append(u'\'' + QString::fromUtf8(hand::genreNames[genre]) + u'\'');
    }
    return u"EXISTS (SELECT 1 FROM \"kx_Genre.tracks\" WHERE b = Track.kx_id AND a IN (SELECT kx_id FROM Genre WHERE "
           "name IN (%1)))"_s.arg(names.join(u','));
}

QString countOf(const hand::Rule &rule)
{
    QStringList parts { u"missing = 0"_s };
    if (rule.hasBpm)
        parts.append(u"bpm >= %1 AND bpm < %2"_s.arg(rule.bpmFrom).arg(rule.bpmTo));
    if (rule.hasYear)
        parts.append(u"year >= %1 AND year < %2"_s.arg(rule.yearFrom).arg(rule.yearTo));
    if (rule.hasRating)
        parts.append(u"rating >= %1"_s.arg(rule.ratingFrom));
    if (rule.genres)
        parts.append(genresIn(rule.genres));
    if (rule.without)
        parts.append(u"NOT "_s + genresIn(rule.without));
    return u"SELECT count(*) FROM Track WHERE "_s + parts.join(u" AND "_s);
}

qint64 countAll(QListWidget &presets)
{
    qint64 sum = 0;
    for (int i = 0; i < hand::Rules; ++i) {
        QSqlQuery query(countOf(hand::rules[std::size_t(i)]));
        if (!query.next())
            qFatal("%s", qPrintable(query.lastError().text()));
        const qint64 count = query.value(0).toLongLong();
        presets.item(i)->setText(u"%1  %2"_s.arg(i, 3, 10, QChar(u'0')).arg(count));
        sum += count;
    }
    return sum;
}

void tell(const char *what, const char *name, qint64 number)
{
    std::printf("{\"%s\":true,\"%s\":%lld}\n", what, name, static_cast<long long>(number));
    std::fflush(stdout);
}

void fillPresets(QListWidget &presets)
{
    QSqlQuery titles(u"SELECT title FROM KXFilterSetPreset WHERE isFolder = 0 ORDER BY title"_s);
    while (titles.next())
        presets.addItem(titles.value(0).toString());
    if (presets.count() != hand::Rules)
        qFatal("not all presets");
}

}

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    const QStringList arguments = QApplication::arguments();
    QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s);
    database.setDatabaseName(arguments.value(1));
    if (!database.open())
        qFatal("%s", qPrintable(database.lastError().text()));
    QSqlQuery(u"PRAGMA cache_size=-32768"_s);

    QSqlQueryModel tracks;
    tracks.setQuery(
        u"SELECT title, artistText, albumText, genreText, bpm, keyOrder, rating, duration, labelText, year, "
        "added, comment FROM Track ORDER BY added DESC"_s);
    auto *const view = new QTableView;
    view->setModel(&tracks);
    plain::arrange(*view, { 220, 170, 162, 130, 62, 92, 98, 76, 108, 58, 106, 136 }, rowHeight);
    QListWidget *presets = nullptr;
    QMainWindow window;
    if (arguments.contains(u"--counts"_s)) {
        presets = new QListWidget;
        fillPresets(*presets);
        auto *const both = new QSplitter;
        both->addWidget(presets);
        both->addWidget(view);
        window.setCentralWidget(both);
    } else {
        window.setCentralWidget(view);
    }
    std::unique_ptr<Painted> counted;
    const Painted shown(view, [&] {
        tell("shown", "rows", tracks.rowCount());
        if (!presets)
            return;
        const qint64 sum = countAll(*presets);
        counted = std::make_unique<Painted>(presets, [sum] { tell("counted", "sum", sum); });
        presets->viewport()->update();
    });
    window.resize(windowSize);
    window.show();
    return QApplication::exec();
}
