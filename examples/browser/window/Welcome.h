#pragma once

#include <QWidget>

class QLabel;

/// What stands in the table's place while it is empty: why, and in a library without any music what to do. Drops go to
/// the table below it.
class Welcome : public QWidget
{
    Q_OBJECT
public:
    /// Fills the parent.
    explicit Welcome(QWidget *parent);

    /// Nothing is in this place.
    void showReason(const QString &text);
    /// Nothing is in the library.
    void showGreeting();

Q_SIGNALS:
    void folderRequested();
    void filesRequested();
    void demoRequested();

private:
    void showTexts(const QString &title, const QString &text, bool hasButtons);

    QLabel *m_title, *m_text;
    QWidget *m_buttons;
};
