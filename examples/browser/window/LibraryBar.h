#pragma once

#include <QToolBar>

class QAction;
class QLabel;

/// The bar at the top of the library's window: the way back and forward, undo and redo, the title of what is shown,
/// its summary and the search.
class LibraryBar : public QToolBar
{
    Q_OBJECT
public:
    LibraryBar(QAction *undo, QAction *redo, QAction *lightTheme, QWidget *searchField);

    void addNavigation(QAction *back, QAction *forward);
    void setTitle(const QString &title);
    /// At the right; for whoever counts.
    [[nodiscard]] QLabel *summary() const { return m_summary; }

private:
    QLabel *m_title;
    QLabel *m_summary;
};
