#pragma once

#include <functional>

#include <QMessageBox>
#include <QStringList>
#include <QWidget>

#include <kestrixkit/foundation/KXApplication.h>
#include <kestrixkit/foundation/KXGlobal.h>

enum class KXAlertStyle : int { Informational, Warning, Critical };

/// What came of an alert.
struct KXAlertAnswer
{
    int button = -1; ///< place of the button pressed; -1 where it was closed without one
    bool suppressed = false; ///< whether the user asked not to be asked again
};

/// A question that waits for the user's answer.
///
/// While it waits, everything else of the main thread goes on: objects that were at hand before may be deleted, and
/// widgets gone, when run() returns. Look again at what you are about to change. Main thread.
class KX_UI_EXPORT KXAlert
{
public:
    using Runner = std::function<KXAlertAnswer(const KXAlert &)>;

    explicit KXAlert(QString text, KXAlertStyle style = KXAlertStyle::Informational);

    KXAlert &setInformativeText(const QString &text)
    {
        m_informativeText = text;
        return *this;
    }
    /// From first to last; the first is the default, the last that of the Escape key. "OK" unless given.
    KXAlert &setButtons(const QStringList &titles)
    {
        m_buttons = titles;
        return *this;
    }
    /// Whether there is a check box "Do not ask again".
    KXAlert &setShowsSuppressionButton(bool shows)
    {
        m_showsSuppressionButton = shows;
        return *this;
    }

    [[nodiscard]] const QString &text() const { return m_text; }
    [[nodiscard]] KXAlertStyle style() const { return m_style; }
    [[nodiscard]] const QString &informativeText() const { return m_informativeText; }
    [[nodiscard]] const QStringList &buttons() const { return m_buttons; }
    [[nodiscard]] bool showsSuppressionButton() const { return m_showsSuppressionButton; }

    /// Asks, in front of the window where one is given and lives.
    [[nodiscard]] KXAlertAnswer run(QWidget *window = nullptr) const;

    /// What run() shows, with its default button and so on; the caller owns it unless it has a parent.
    [[nodiscard]] QMessageBox *makeBox(QWidget *parent) const;

    /// Whoever answers in the user's place until the token goes: a test, or a host with alerts of its own. The newest
    /// that still stands is asked.
    [[nodiscard]] static KXScopeToken setRunner(Runner runner);

private:
    [[nodiscard]] KXAlertAnswer ask(QWidget *window) const;

    QString m_text;
    QString m_informativeText;
    QStringList m_buttons;
    KXAlertStyle m_style;
    bool m_showsSuppressionButton = false;
};
