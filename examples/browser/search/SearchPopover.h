#pragma once

#include <memory>

#include <kestrixkit/audio/views/KXAudioCoverCache.h>
#include <kestrixkit/navigation/KXSearchViewController.h>
#include <kestrixkit/search/KXSearchIndex.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

class KXThemeableTextField;

/// Finds tracks, artists, albums, genres, labels, presets and crates as one types.
class LibrarySearchViewController : public KXSearchViewController
{
    Q_OBJECT
public:
    explicit LibrarySearchViewController(KXSearchIndex &index, QObject *parent = nullptr);

    [[nodiscard]] KXSearchResultCell resultCell(const QVariant &item) const override;

Q_SIGNALS:
    void picked(const KXManagedObjectID &object);
    void playRequested(const KXManagedObjectID &object);

protected:
    void viewDidLoad() override;
    void performSearch() override;
    void showItem(QObject *sender) override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    void take(const KXSearchResults &results);
    /// Invalid where there is none.
    [[nodiscard]] KXManagedObjectID confirmed() const;

    /// Of the track, or of the album's first.
    [[nodiscard]] QIcon coverOf(const KXManagedObject &object) const;

    KXSearchIndex &m_index;
    mutable KXAudioCoverCache m_covers;
    QString m_shownTerm; // whose results are shown
};

/// The search of a library's window: a field in the toolbar, which opens the popover, and the index behind it.
class SearchPopover : public QObject
{
    Q_OBJECT
public:
    explicit SearchPopover(const KXManagedObjectContext::Ref &context, QObject *parent = nullptr);
    /// The index, which is opened when something is first searched for.
    ~SearchPopover() override;

    /// The parent's of whatever it is put into.
    [[nodiscard]] QWidget *field() const;
    void show();
    void close();
    [[nodiscard]] LibrarySearchViewController *controller() const { return m_controller.get(); }
    [[nodiscard]] KXPopoverController *popover() const { return m_popover.get(); }

Q_SIGNALS:
    void picked(const KXManagedObjectID &object);
    void playRequested(const KXManagedObjectID &object);

protected:
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    void make();

    const KXManagedObjectContext::Ref m_context;
    QPointer<KXThemeableTextField> m_field;
    std::unique_ptr<KXSearchIndex> m_index;
    std::unique_ptr<LibrarySearchViewController> m_controller;
    std::unique_ptr<KXPopoverController> m_popover;
};
