#pragma once

#include <functional>

#include <QWidget>

#include <kestrixkit/foundation/KXDelayedCall.h>

class KXFilterSetPresetsBarViewController;
class KXFilterSetViewController;
class KXThemeableTextField;
class QAction;
class QActionGroup;
class QHBoxLayout;

/// The two bars above a list: presets as buttons with a field for words at their end, and the filters below them. The
/// commands that go with them are for the menu bar, while the list is shown.
class FilterBars : public QWidget
{
    Q_OBJECT
public:
    /// What the field is for.
    struct Words
    {
        QString command; ///< in the menu
        QString placeholder;
        QString name; ///< to assistive technology
        int width = 180; ///< in points
        double pause = 0.12; ///< seconds, within which the next key of a quick typist comes
    };
    /// The controllers are borrowed. Whoever owns them ends them before or after.
    FilterBars(KXFilterSetPresetsBarViewController *presets, KXFilterSetViewController *filters, const Words &words);

    /// Puts something between presets and field.
    void addState(QWidget *widget);
    [[nodiscard]] KXThemeableTextField *field() const { return m_field; }
    [[nodiscard]] QString words() const;
    /// Tells nobody.
    void setWords(const QString &words);

    /// Commands for the menu bar.
    [[nodiscard]] const QList<QAction *> &commands() const { return m_commands; }
    QAction *addCommand(const QString &title, const QKeySequence &keys, const std::function<void()> &perform);
    /// Those of bars that are not shown have no keys.
    void setCommandsShown(bool shown);

Q_SIGNALS:
    /// The words are others, and the typist rests.
    void wordsDidChange();
    /// The keyboard goes back to the list.
    void wordsDidEnd();

protected:
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    QWidget *addBar(QHBoxLayout *&line);
    void makeCommands(const QString &fieldCommand);
    void focusFilters();

    KXFilterSetViewController *const m_filters;
    QHBoxLayout *m_top = nullptr;
    KXThemeableTextField *m_field;
    QList<QAction *> m_commands;
    QActionGroup *m_group;
    KXDelayedCall m_typing { this };
};
