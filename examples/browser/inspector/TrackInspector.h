#pragma once

#include <memory>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/navigation/KXInspectorViewController.h>

#include "library/Library.h"

class LibraryEditor;
class QAction;
class TrackSection;
class TrackTableView;
class TrackUsesSection;

/// The pane to the right of the table: what is known of the selected tracks, in sections. Shown and hidden by its
/// action; whether it is, and which sections are open, is remembered.
class TrackInspector : public QObject
{
    Q_OBJECT
public:
    /// All of these are borrowed.
    TrackInspector(KXManagedObjectContext::Ref context, TrackTableView *table, LibraryEditor *editor);
    ~TrackInspector() override;

    /// For the window's splitter.
    [[nodiscard]] QWidget *container() const { return m_container; }
    [[nodiscard]] QAction *action() const { return m_action; }
    [[nodiscard]] KXInspectorViewController *inspector() const { return m_inspector.get(); }
    [[nodiscard]] bool isShown() const { return m_isShown; }
    void setShown(bool shown);

Q_SIGNALS:
    /// A crate or preset that holds a track was clicked.
    void picked(const KXManagedObjectID &place);

private:
    void follow(const KXObjectsDidChange &did);
    void showSelection();

    const KXManagedObjectContext::Ref m_context;
    TrackTableView *const m_table;
    QWidget *const m_container;
    QAction *const m_action;
    std::unique_ptr<KXInspectorViewController> m_inspector;
    TrackUsesSection *const m_uses;
    QList<TrackSection *> m_sections; // the inspector's, that one included
    KXDelayedCall m_showSoon { this };
    KXNotificationToken m_changes;
    bool m_isShown = false;
};
