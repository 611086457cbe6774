#include <kestrixkit/toolkit/KXAlert.h>

#include <map>

#include <QCheckBox>
#include <QPointer>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/KXStandardTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>

using namespace Qt::StringLiterals;

namespace {

constexpr char alertButtonProperty[] = "kxAlertButton"; // the place of its title

/// In the theme's colours, if there is one.
class AlertBox : public QMessageBox
{
public:
    AlertBox(const QString &icon, QWidget *parent)
        : QMessageBox(parent)
        , m_icon(u":/kestrixkit/icons/%1.svg"_s.arg(icon))
    {
        follow();
    }

    void follow()
    {
        const KXThemeManager &manager = KXThemeManager::sharedManager();
        if (const QVariant theme = manager.valueForKeyPath(u"palette"_s); theme.isValid()) {
            auto colours = theme.value<QPalette>();
            setPalette(colours);
            colours.setColor(QPalette::Base, colours.color(QPalette::Midlight)); // boxes that show on the background
            if (checkBox())
                checkBox()->setPalette(colours);
        }
        const auto accent = manager.valueForKeyPath(u"accentColour"_s).value<QColor>();
        const QIcon icon
            = KXStandardTheme::icon(m_icon, accent.isValid() ? accent : palette().color(QPalette::Highlight));
        setIconPixmap(icon.pixmap(QSize(32, 32), devicePixelRatioF()));
    }

private:
    const QString m_icon;
    const KXNotificationToken m_themeChanges = KXNotificationCenter::defaultCenter().addObserver(
        KXThemeDidChangeNotification, &KXThemeManager::sharedManager(), [this](const KXNotification &) { follow(); });
};

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

QMessageBox *KXAlert::makeBox(QWidget *parent) const
{
    auto *const box = new AlertBox(m_style == KXAlertStyle::Informational ? u"information"_s : u"warning"_s, parent);
    box->setText(m_text);
    box->setInformativeText(m_informativeText);
    for (qsizetype i = 0; i < m_buttons.size(); ++i) {
        const bool isLast = i > 0 && i == m_buttons.size() - 1;
        auto *const button = new KXThemeableButton(m_buttons[i], box);
        button->setThemeStyleName(i == 0 ? KXDefaultButtonStyles : KXButtonStyles);
        button->setProperty(alertButtonProperty, int(i));
        box->addButton(button, isLast ? QMessageBox::RejectRole : QMessageBox::AcceptRole);
        if (i == 0)
            box->setDefaultButton(button);
        box->setEscapeButton(button); // the last one stays
    }
    if (m_showsSuppressionButton) {
        box->setCheckBox(new QCheckBox(KXLocalizedString("Do not ask again"), box));
        box->follow();
    }
    return box;
}

KXAlertAnswer KXAlert::ask(QWidget *window) const
{
    // Its window may end while it waits, and take it along.
    const QPointer<QMessageBox> box(makeBox(window ? window->window() : nullptr));
    box->exec();
    KXAlertAnswer answer;
    if (box) {
        if (const QAbstractButton *clicked = box->clickedButton())
            answer.button = clicked->property(alertButtonProperty).toInt();
        answer.suppressed = box->checkBox() && box->checkBox()->isChecked();
        delete box;
    }
    return answer;
}
