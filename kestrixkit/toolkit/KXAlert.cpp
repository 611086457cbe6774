#include <kestrixkit/toolkit/KXAlert.h>

#include <map>

#include <QCheckBox>
#include <QMessageBox>
#include <QPushButton>

#include <kestrixkit/foundation/KXStringWithFormat.h>

namespace {

// Never destroyed: tokens may outlive everything else.
std::map<quint64, KXAlert::Runner> &alertRunners()
{
    static auto *const runners = new std::map<quint64, KXAlert::Runner>;
    return *runners;
}

}

KXAlert::KXAlert(QString text, KXAlertStyle style)
    : m_text(std::move(text))
    , m_buttons({ KXLocalizedString("OK") })
    , m_style(style)
{
}

KXScopeToken KXAlert::setRunner(Runner runner)
{
    static quint64 last = 0;
    const quint64 serial = ++last;
    alertRunners().emplace(serial, std::move(runner));
    return KXScopeToken([serial] { alertRunners().erase(serial); });
}

KXAlertAnswer KXAlert::run(QWidget *window) const
{
    if (alertRunners().empty())
        return ask(window);
    const Runner runner = alertRunners().rbegin()->second; // it may replace itself
    return runner(*this);
}

KXAlertAnswer KXAlert::ask(QWidget *window) const
{
    constexpr QMessageBox::Icon icons[] { QMessageBox::Information, QMessageBox::Warning, QMessageBox::Critical };
    // Its window may end while it waits, and take it along.
    const QPointer<QMessageBox> box(new QMessageBox(window ? window->window() : nullptr));
    box->setIcon(icons[int(m_style)]);
    box->setText(m_text);
    box->setInformativeText(m_informativeText);
    QList<QPushButton *> buttons;
    for (qsizetype i = 0; i < m_buttons.size(); ++i) {
        const bool isLast = i > 0 && i == m_buttons.size() - 1;
        buttons.append(box->addButton(m_buttons[i], isLast ? QMessageBox::RejectRole : QMessageBox::AcceptRole));
    }
    if (!buttons.isEmpty()) {
        box->setDefaultButton(buttons.first());
        box->setEscapeButton(buttons.last());
    }
    if (m_showsSuppressionButton)
        box->setCheckBox(new QCheckBox(KXLocalizedString("Do not ask again"), box));
    box->exec();
    KXAlertAnswer answer;
    if (box) {
        answer.button = int(buttons.indexOf(qobject_cast<QPushButton *>(box->clickedButton())));
        answer.suppressed = box->checkBox() && box->checkBox()->isChecked();
        delete box;
    }
    return answer;
}
