#pragma once

#include <QObject>
#include <QSet>

class BrowserWindow;
class KXLiveCounts;
class QWidget;

/// Tells on standard output how long a start took, each as a line of JSON, in milliseconds since the process was
/// started (which the kernel remembers to ten):
///
///     {"shown":412}                   the window has been drawn, with the tracks of its place and the left side
///     {"counted":530,"counts":141}    all badges of the left side are right, and drawn; so many rules were counted
///
/// Made before the window is shown; goes before it. Main thread.
class StartReport : public QObject
{
    Q_OBJECT
public:
    explicit StartReport(BrowserWindow &window);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void awaitPaint(QWidget *view);
    void follow(KXLiveCounts &counts);
    void countsAreRight(const KXLiveCounts &counts);
    void lookLater();
    void look();

    BrowserWindow &m_window;
    QSet<QObject *> m_unpainted; // viewports, since they last changed
    bool m_hasPlace = false;
    bool m_hasShown = false;
    qsizetype m_counted = -1; // rules; negative until all have been counted
    bool m_hasCounted = false;
    bool m_looksLater = false;
};
