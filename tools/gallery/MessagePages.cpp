// The strip of messages, their details, the preferences window.

#include <QBoxLayout>
#include <QFormLayout>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/messages/KXMessageCenter.h>
#include <kestrixkit/messages/views/KXMessageCenterDetailsViewController.h>
#include <kestrixkit/messages/views/KXMessageView.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeablePopUpButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>
#include <kestrixkit/util/views/KXPreferences.h>

#include "Pages.h"

using namespace Qt::StringLiterals;

namespace gallery {

namespace {

/// Strips that follow the theme as their controller would have them.
class Strips : public KXThemeableView
{
public:
    enum State { Normal, Focused, Pressed };
    void add(KXMessageType type, const QString &message, State state = Normal)
    {
        auto *strip = new KXMessageView(this);
        strip->setMessage(message);
        strip->setProperty(focusProperty, state == Focused);
        strip->hideButton()->setDown(state == Pressed);
        m_strips.append({ strip, type });
        layout()->addWidget(strip);
        follow();
    }
    Strips()
    {
        new QVBoxLayout(this);
        m_theme = KXNotificationCenter::defaultCenter().addObserver(KXThemeDidChangeNotification,
            &KXThemeManager::sharedManager(), [this](const KXNotification &) { follow(); });
    }

private:
    void follow()
    {
        const auto &theme = KXThemeManager::sharedManager().theme();
        for (const auto &[strip, type] : m_strips) {
            if (theme)
                strip->setBackgroundGradient(
                    type == KXMessageTypeError ? theme->messageViewErrorGradient() : theme->messageViewInfoGradient());
        }
    }
    QList<std::pair<KXMessageView *, KXMessageType>> m_strips;
    KXNotificationToken m_theme;
};

class SectionViewController : public KXPreferencesViewController
{
public:
    SectionViewController(const Texts &text, const char *name, const QString &icon, QObject *parent)
        : KXPreferencesViewController(parent)
        , m_text(text)
    {
        setPreferencesSectionName(text(name));
        setPreferencesSectionImage(QIcon(icon));
    }

protected:
    void loadView() override
    {
        auto *view = new QWidget;
        auto *form = new QFormLayout(view);
        form->setContentsMargins(24, 20, 24, 20);
        form->setLabelAlignment(Qt::AlignLeading | Qt::AlignVCenter);
        const auto label = [&](const char *name) {
            auto *made = new KXThemeableTextField(m_text(name));
            made->setLabel(true);
            made->setThemeStyleName(KXLabelStyles);
            return made;
        };
        auto *theme = new KXThemeablePopUpButton;
        theme->addItems({ m_text("Dark"), m_text("Light") });
        theme->setAccessibleName(m_text("Theme"));
        theme->setThemeStyleName(KXPopUpButtonStyles);
        form->addRow(label("Theme"), theme);
        auto *choose = new KXThemeableButton(m_text("Choose"));
        choose->setThemeStyleName(KXButtonStyles);
        form->addRow(label("Music folder"), choose);
        setView(view);
    }

private:
    const Texts m_text;
};

}

QWidget *messagesPage(const Texts &text)
{
    auto *page = new KXThemeableView;
    auto *column = new QVBoxLayout(page);
    auto *strips = new Strips;
    strips->add(KXMessageTypeError, text("3 files could not be read"));
    strips->add(KXMessageTypeInfo, text("12 tracks were added") + u" (4)"_s, Strips::Focused);
    strips->add(KXMessageTypeError,
        text("The library is kept on a disk that is not there") + u' '
            + text("and cannot be opened until it is connected again"));
    strips->add(KXMessageTypeInfo, text("Up to date"), Strips::Pressed);
    column->addWidget(strips);

    // As it would be in its popover: the messages of the center, at a time of their own.
    KXMessageCenter &center = KXMessageCenter::sharedInstance();
    {
        const KXClockPin pin(QDateTime(QDate(2026, 3, 4), QTime(12, 30), Qt::UTC));
        center.postMessage(KXMessage::messageWithType(KXMessageTypeInfo, text("12 tracks were added")));
        center.postMessage(KXMessage::messageWithError(KXError(u"com.example.audio"_s, 7, text("The file is cut off"),
            { { KXErrorStackTraceKey, QStringList { u"libKestrixKitAudio.so KXAudioFile::open() +0x2a"_s } } })));
        center.postMessage(KXMessage::messageWithType(KXMessageTypeError, text("3 files could not be read"),
            u"<ul><li>one.mp3: %1</li><li>two.wav: %1</li><li>three.flac: %1</li></ul>"_s.arg(
                text("not a music file"))));
    }
    auto *details = new KXMessageCenterDetailsViewController(page);
    details->popoverWillShow();
    center.clearMessages(details->messages());
    column->addWidget(details->view());
    page->setFixedWidth(520);
    return page;
}

QWidget *preferencesPage(const Texts &text)
{
    auto *preferences = new KXPreferences;
    const QString icons = u":/kestrixkit/icons/%1.svg"_s;
    preferences->setViewControllers({ new SectionViewController(text, "General", icons.arg(u"library"_s), preferences),
        new SectionViewController(text, "Appearance", icons.arg(u"theme"_s), preferences) });
    QWidget *const window = preferences->window();
    preferences->setParent(window);
    return window;
}

}
