#include <kestrixkit/util/views/KXPreferences.h>

#include <QActionGroup>
#include <QApplication>
#include <QShortcut>
#include <QStyleOptionButton>
#include <QVBoxLayout>

#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int preferencesIconSide = 24;
constexpr int preferencesItemPadding = 6;

/// The image above the text, both in the colour of the text.
class PreferencesItemCell : public KXThemeableButtonCell
{
public:
    QSize sizeHint(const QStyleOptionButton &option) const override
    {
        const QSize text = option.fontMetrics.size(Qt::TextShowMnemonic, option.text);
        return { std::max(text.width(), option.iconSize.width()) + 4 * preferencesItemPadding,
            option.iconSize.height() + text.height() + 3 * preferencesItemPadding };
    }

protected:
    void paintInterior(QPainter &painter, const QStyleOptionButton &option, const QRect &) const override
    {
        const QRect room = option.rect.adjusted(0, preferencesItemPadding, 0, -preferencesItemPadding);
        const QRect image(room.topLeft(), QSize(room.width(), option.iconSize.height()));
        KXControlPainter::icon(painter, image, option.icon, textColour(option), option.state);
        KXControlPainter::text(
            painter, room, Qt::AlignHCenter | Qt::AlignBottom | Qt::TextShowMnemonic, option.text, textColour(option));
    }
};

class PreferencesItem : public KXThemeableButton
{
public:
    explicit PreferencesItem(const KXPreferencesViewController &section)
        : KXThemeableButton(new PreferencesItemCell, nullptr)
    {
        setText(QString(section.preferencesSectionName()).replace(u'&', "&&"_L1)); // no mnemonic
        setAccessibleName(section.preferencesSectionName());
        setIcon(section.preferencesSectionImage());
        setIconSize({ preferencesIconSide, preferencesIconSide });
        setCheckable(true);
        setThemeStyleName(KXToolbarButtonStyles);
    }
};

}

KXPreferences &KXPreferences::sharedPreferences()
{
    static KXPreferences *shared = nullptr;
    if (!shared) {
        shared = new KXPreferences;
        qAddPostRoutine([] { delete std::exchange(shared, nullptr); }); // while the application still has windows
    }
    return *shared;
}

KXPreferences::KXPreferences(QObject *parent)
    : KXObject(parent)
{
}

KXPreferences::~KXPreferences()
{
    if (m_window != parent()) // else it is the window that ends
        delete m_window.data();
}

QList<KXPreferencesViewController *> KXPreferences::viewControllers() const
{
    QList<KXPreferencesViewController *> controllers;
    for (const auto &controller : m_viewControllers) {
        if (controller)
            controllers.append(controller);
    }
    return controllers;
}

void KXPreferences::setViewControllers(const QList<KXPreferencesViewController *> &controllers)
{
    m_viewControllers.clear();
    for (KXPreferencesViewController *controller : controllers) {
        if (!controller)
            continue;
        m_viewControllers.append(controller);
        controller->setPreferences(this);
        connect(controller, &QObject::destroyed, this, &KXPreferences::fillToolbar, Qt::UniqueConnection);
    }
    if (m_selected && !controllers.contains(m_selected))
        m_selected->disappear();
    fillToolbar();
    setSelectedViewController(viewControllers().value(0));
}

void KXPreferences::removeViewController(KXPreferencesViewController *controller)
{
    if (!m_viewControllers.removeAll(controller))
        return;
    disconnect(controller, &QObject::destroyed, this, &KXPreferences::fillToolbar);
    if (m_selected == controller)
        setSelectedViewController(viewControllers().value(0)); // it goes while its size is known
    if (const QSize size = m_sizes.take(controller); size.isValid())
        controller->view()->resize(size); // not the one of a moment of an animation
    fillToolbar();
}

QStringList KXPreferences::toolbarItemIdentifiers() const
{
    QStringList names;
    for (const KXPreferencesViewController *controller : viewControllers())
        names.append(controller->preferencesSectionName());
    return names;
}

KXPreferencesViewController *KXPreferences::viewControllerWithName(const QString &sectionName) const
{
    for (KXPreferencesViewController *controller : viewControllers()) {
        if (controller->preferencesSectionName() == sectionName)
            return controller;
    }
    return nullptr;
}

void KXPreferences::showPreferenceViewWithIdentifier(const QVariant &identifier)
{
    for (KXPreferencesViewController *controller : viewControllers()) {
        if (controller->identifier() == identifier) {
            setSelectedViewController(controller);
            return;
        }
    }
}

void KXPreferences::toggleActivePreferenceView(QAction *item)
{
    if (item)
        setSelectedViewController(viewControllerWithName(item->data().toString()));
}

void KXPreferences::setSelectedViewController(KXPreferencesViewController *controller)
{
    if (controller == m_selected)
        return;
    const QPointer<KXPreferences> alive(this);
    const QPointer<KXPreferencesViewController> wanted(controller);
    const quint32 request = ++m_requests;
    if (m_selected) // it still is while it is told that it goes
        m_selected->disappear();
    if (!alive || m_requests != request)
        return; // whoever was told selects something else
    m_selected = wanted;
    if (m_window)
        showSelected(true);
}

QWidget *KXPreferences::window()
{
    if (!m_window)
        loadWindow();
    return m_window;
}

void KXPreferences::showWindow()
{
    const QWidget *const over = QApplication::activeWindow();
    if (over && over != window() && !m_window->testAttribute(Qt::WA_Moved)) { // later it lies where the user left it
        QRect frame = m_window->rect();
        frame.moveCenter(over->frameGeometry().center());
        m_window->move(frame.topLeft());
    }
    window()->show();
    m_window->raise();
    m_window->activateWindow();
}

void KXPreferences::loadWindow()
{
    m_window = KXInterfaceLoader::shared().load(KXInterfaceLoader::pathForInterface(u"KXPreferences"_s));
    if (!m_window) // a host's file that is broken, which is logged
        m_window = new QWidget;
    m_window->setWindowFlag(Qt::Dialog);
    m_window->setAttribute(Qt::WA_QuitOnClose, false); // the application ends with its own windows
    m_activeContentView = m_window->findChild<QWidget *>(u"activeContentView"_s);
    if (!m_activeContentView)
        m_activeContentView = new QWidget(m_window);
    m_toolbar = new QToolBar(m_window);
    m_toolbar->setObjectName("preferences"_L1);
    m_toolbar->setAccessibleName(KXLocalizedString("Sections"));
    m_toolbar->setMovable(false);
    m_toolbar->setContextMenuPolicy(Qt::PreventContextMenu);
    m_defaultWindowWidth = m_window->width();
    auto *layout = qobject_cast<QBoxLayout *>(m_window->layout());
    if (!layout) {
        delete m_window->layout();
        layout = new QVBoxLayout(m_window);
        layout->addWidget(m_activeContentView);
    }
    layout->setContentsMargins({});
    layout->setSpacing(0);
    layout->insertWidget(0, m_toolbar);
    connect(new QShortcut(QKeySequence::Cancel, m_window), &QShortcut::activated, m_window, &QWidget::close);
    connect(new QShortcut(QKeySequence::Close, m_window), &QShortcut::activated, m_window, &QWidget::close);
    // Another theme may make the items larger; it is sized anew when they have followed.
    m_theme = KXNotificationCenter::defaultCenter().addObserver(KXThemeDidChangeNotification,
        &KXThemeManager::sharedManager(),
        [this](const KXNotification &) { KXMainQueue::async(this, [this] { showSelected(false); }); });
    fillToolbar();
    showSelected(false);
}

void KXPreferences::fillToolbar()
{
    const QList<KXPreferencesViewController *> controllers = viewControllers();
    m_sizes.removeIf([&](QHash<const QObject *, QSize>::iterator size) {
        return std::find(controllers.begin(), controllers.end(), size.key()) == controllers.end();
    });
    if (!m_toolbar)
        return;
    for (QAction *item : m_toolbar->actions()) {
        m_toolbar->removeAction(item);
        item->deleteLater(); // with its button, a click on which may have led here
    }
    delete m_items.data();
    m_items = new QActionGroup(m_toolbar);
    for (KXPreferencesViewController *controller : controllers) {
        auto *const button = new PreferencesItem(*controller);
        QAction *const item = m_toolbar->addWidget(button);
        m_items->addAction(item);
        item->setData(controller->preferencesSectionName());
        item->setCheckable(true);
        connect(item, &QAction::toggled, button, &QPushButton::setChecked);
        connect(button, &QPushButton::clicked, this, [this, item = QPointer(item), button = QPointer(button)] {
            toggleActivePreferenceView(item);
            if (item && button)
                button->setChecked(item->isChecked());
        });
        item->setChecked(controller == m_selected);
    }
}

void KXPreferences::showSelected(bool animated)
{
    if (!m_window)
        return;
    QSize size;
    if (m_selected) {
        QWidget *const view = m_selected->view();
        auto known = m_sizes.find(m_selected.data());
        if (known == m_sizes.end()) // later on it has the size that it was shown in
            known = m_sizes.insert(
                m_selected.data(), view->testAttribute(Qt::WA_Resized) ? view->size() : view->sizeHint());
        size = known->expandedTo(view->minimumSizeHint());
        const QPointer<KXPreferencesViewController> shown = m_selected;
        m_selected->appearIn(m_activeContentView);
        if (m_selected != shown)
            return; // whoever was told selects something else
        if (shown)
            m_window->setWindowTitle(shown->preferencesSectionName());
    }
    for (QAction *item : m_items->actions())
        item->setChecked(m_selected && item->data() == m_selected->preferencesSectionName());
    size.setWidth(std::max({ size.width(), m_defaultWindowWidth, m_toolbar->sizeHint().width() }));
    size.setHeight(size.height() + m_toolbar->sizeHint().height());
    // The top left corner is what resizing leaves where it is. Nobody but a section sizes the window.
    if (animated && m_window->isVisible() && KXAnimationGroup::areAnimationsEnabled()) {
        if (!m_resizing)
            m_resizing = new KXAnimationGroup(0.2, m_window);
        m_resizing->add(m_window, "minimumSize", size).add(m_window, "maximumSize", size).start();
    } else {
        if (m_resizing)
            m_resizing->finish();
        m_window->setFixedSize(size);
    }
}
