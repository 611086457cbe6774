#pragma once

#include <functional>
#include <memory>

#include <QList>
#include <QObject>
#include <QStringList>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/predicate/KXFetchRequest.h>

class KXSearchIndexPrivate;

/// Objects of one entity (with its sub-entities) that a search looks for, and by what they are found.
struct KX_CORE_EXPORT KXSearchGroup
{
    QString name; ///< for whoever shows results
    QString entityName;
    /// Key paths of stored attributes, through relationships as well: "title", "artists.name". Texts, URIs and numbers.
    QStringList texts;
    /// The order of results, the best first; then by key. Key paths through to-one relationships are allowed.
    QList<KXSortDescriptor> rank;

    /// The term as a condition on an object of the group, to be kept as a filter or to narrow a list: each of its words
    /// begins a word of the texts. Never looks inside words, so that it depends on the object alone. Absent for a term
    /// without words. Any thread.
    [[nodiscard]] KXPredicate predicate(const QString &term) const;
};

/// What a search found.
struct KXSearchResults
{
    /// Of one group.
    struct Group
    {
        QString name;
        qint64 count = 0; ///< of all that match; exact
        QList<KXManagedObjectID> first; ///< the best, as many as were asked for
    };
    QString term;
    QList<Group> groups; ///< in the order of the index's; empty where the store did not answer
    /// False while many changes are still being read: didChange() follows, and with it the right results. Also false
    /// where the store did not answer: nothing follows then, the next search tries again.
    bool isCurrent = true;
};

/// Answers every keystroke: finds objects by the beginnings of words, in any order, without regard to case, diacritics
/// and punctuation, the best first, with exact counts by group.
///
/// An object matches when each word of the term begins a word of its texts. A word of three characters or more that
/// begins no word of the group at all is looked for inside words. In scripts without blanks every character begins a
/// word, of at most four characters.
///
/// Holds words and rows in memory, 60 to 100 bytes for a track. What a context announces, unsaved changes included, is
/// found from then on: at the end of the turn, before a save, with a merge. An index with a name is kept in a file
/// beside the store, which a later start maps instead of reading the store; see docs/formats/search.md. A file that is
/// missing, damaged or not of the store's newest state is made anew, in the background, and a folder that cannot be
/// written costs the file alone. Saves of other processes are noticed with the next save of this one, or by update().
///
/// Belongs to the thread of its context, which it keeps; that must have an event loop for what is asynchronous.
class KX_CORE_EXPORT KXSearchIndex : public QObject
{
    Q_OBJECT

public:
    /// The name becomes part of a file's name: letters, digits and "_". Without a name nothing is kept. Throws
    /// KXException for entities and key paths that the model does not have or that cannot be searched or sorted by.
    KXSearchIndex(const KXManagedObjectContext::Ref &context, const QList<KXSearchGroup> &groups,
        const QString &name = {}, QObject *parent = nullptr);
    /// Ends what runs, which takes a moment, and keeps what has changed.
    ~KXSearchIndex() override;

    [[nodiscard]] const KXManagedObjectContext::Ref &managedObjectContext() const;
    [[nodiscard]] const QList<KXSearchGroup> &groups() const;

    /// Whether there is anything to search in: didOpen() tells.
    [[nodiscard]] bool isOpen() const;
    /// Maps the file, or reads the store where there is none that fits, and returns when that is done. False with an
    /// error where the store does not answer.
    bool open(KXError *error = nullptr);
    /// The same in the background, where the store has to be read.
    void openInBackground();

    /// The best `limit` of each group. Opens the index where that was not done.
    [[nodiscard]] KXSearchResults results(const QString &term, qsizetype limit, KXError *error = nullptr);
    /// The same in the background: calls the function in a later turn, unless another search() or stop() comes first.
    /// That ends the one that runs, so that at most one does, and only the last one's results are ever delivered.
    void search(const QString &term, qsizetype limit, std::function<void(const KXSearchResults &)> receiver);
    void stop();

    /// Looks whether another process has saved, and if so reads the store again in the background. Answers whether it
    /// has.
    bool update();
    /// Reads the store anew into a smaller index, as is done now and then while nothing happens. In the background;
    /// didFold() tells.
    void fold();
    /// Writes to the disk what a later start needs. Done by itself when nothing has happened for a while, and at the
    /// end. False with an error where that fails, or nothing is kept because of what is not saved or not merged.
    bool keep(KXError *error = nullptr);

    // What it costs.

    /// What an index takes.
    struct Figures
    {
        qint64 bytes = 0; ///< of all groups
        qint64 rows = 0; ///< of all groups
        qint64 changedRows = 0; ///< since the store was read
        bool isMapped = false; ///< whether the groups lie in a file
    };
    [[nodiscard]] Figures figures() const;

Q_SIGNALS:
    void didOpen();
    /// What was found before may not be right any more.
    void didChange();
    void didFold();

private:
    const std::unique_ptr<KXSearchIndexPrivate> d;
};
