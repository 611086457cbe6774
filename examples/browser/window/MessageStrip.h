#pragma once

#include <QPointer>
#include <QUrl>

#include <kestrixkit/messages/views/KXMessageCenterViewController.h>

#include "import/Importer.h"

class QAction;
class QMainWindow;
class QToolBar;

/// The strip of messages, above a window's status bar, while there is something to say.
class MessageStrip : public QObject, public KXMessageCenterViewControllerDelegate
{
    Q_OBJECT
public:
    /// Belongs to the window.
    explicit MessageStrip(QMainWindow *window);

    /// Shows the details of all messages; for a menu.
    [[nodiscard]] QAction *action() const { return m_action; }

    void messageCenterViewShouldBeShown(KXMessageCenterViewController *controller) override;
    void messageCenterViewShouldBeHidden(KXMessageCenterViewController *controller) override;

    // What the browser has to say.

    /// Files that could not be read, and an import that failed. Nothing where all went well.
    static void postImport(const ImportResult &result);
    /// Files whose tags could not be written. Nothing where all could.
    static void postUnwritten(const std::vector<SkippedFile> &files);
    /// Files whose tempo and key could not be looked for. Nothing where all could.
    static void postUnanalysed(const std::vector<SkippedFile> &files);
    static void postUnplayable(const QString &title, const QUrl &file);

private:
    KXMessageCenterViewController m_controller;
    QPointer<QToolBar> m_bar;
    QAction *m_action;
};
