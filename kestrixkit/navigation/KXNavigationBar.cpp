#include <kestrixkit/navigation/KXNavigationBar.h>

#include <numeric>

#include <QKeyEvent>
#include <QStyle>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/toolkit/KXMenu.h>

using namespace Qt::StringLiterals;

KXNavigationBarDelegate::~KXNavigationBarDelegate() = default;

KXNavigationBar::KXNavigationBar(QWidget *parent)
    : KXThemeableView(parent)
    , m_overflowButton(new KXThemeableButton(this))
    , m_overflowMenu(new KXMenu(this))
{
    setAccessibleName(KXLocalizedString("Navigation"));
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    m_overflowButton->setThemeStyleName(KXNavigationBarButtonStyles);
    m_overflowButton->setIcon(QIcon(u":/kestrixkit/icons/overflow.svg"_s));
    m_overflowButton->setAccessibleName(KXLocalizedString("More Places"));
    m_overflowButton->setToolTip(KXLocalizedString("More Places"));
    m_overflowButton->hide();
    m_overflowButton->installEventFilter(this);
    connect(m_overflowButton, &QPushButton::clicked, this, &KXNavigationBar::showOverflowMenu);
    m_overflowMenu->setAccessibleName(KXLocalizedString("More Places"));
    m_overflowMenu->setUpdater([this](KXMenu &menu) {
        for (auto button = m_overflowedButtons.crbegin(); button != m_overflowedButtons.crend(); ++button) {
            QAction *const entry = menu.addAction((*button)->text());
            entry->setData(QVariant::fromValue(QPointer<QObject>((*button)->item())));
            connect(entry, &QAction::triggered, this, [this, entry] { popToItem(entry); });
        }
    });
    m_themeChanges = KXNotificationCenter::defaultCenter().addObserver(QString(KXThemeDidChangeNotification),
        &KXThemeManager::sharedManager(), [this](const KXNotification &) { lookUpBackground(); });
    lookUpBackground();
}

void KXNavigationBar::lookUpBackground()
{
    setDrawBackgroundBlock(KXThemeManager::sharedManager()
                               .valueForKeyPath(QString(KXNavigationBarBackgroundDrawBlock))
                               .value<KXDrawBlock>());
    update();
}

KXNavigationBarButton *KXNavigationBar::makeButton(KXNavigationItem *item)
{
    auto *const button = new KXNavigationBarButton(item, this);
    button->installEventFilter(this);
    connect(button, &QPushButton::clicked, this, [this, button] { popToItem(button); });
    connect(item, &KXNavigationItem::titleChanged, button, [this] { layOut(false); });
    connect(item, &QObject::destroyed, button, [this, item] {
        QList<KXNavigationItem *> rest = m_items;
        rest.removeAll(item);
        setItems(rest, false);
    });
    return button;
}

void KXNavigationBar::setItems(const QList<KXNavigationItem *> &items, bool animated)
{
    const QList<KXNavigationBarButton *> before = m_allButtons;
    const QList<KXNavigationItem *> itemsBefore = std::exchange(m_items, items);
    m_items.removeAll(nullptr);
    m_allButtons.clear();
    for (KXNavigationItem *item : std::as_const(m_items)) {
        const qsizetype at = itemsBefore.indexOf(item);
        m_allButtons.append(at < 0 ? makeButton(item) : before.at(at));
    }
    for (KXNavigationBarButton *button : before) {
        if (m_allButtons.contains(button))
            continue;
        button->removeEventFilter(this);
        button->hide();
        button->deleteLater(); // it may be what was pressed
    }
    for (KXNavigationBarButton *button : std::as_const(m_allButtons)) {
        button->setBeginsTrail(button == m_allButtons.constFirst());
        button->setCurrent(button == m_allButtons.constLast());
    }
    layOut(animated);
}

/// From all of them, so that what was overflowed comes back when there is room. The overflow button's own width does
/// not count.
void KXNavigationBar::overflow()
{
    m_overflowedButtons.clear();
    m_buttons.clear();
    int total = 0;
    for (KXNavigationBarButton *button : std::as_const(m_allButtons)) {
        m_buttons.append(button);
        total += button->sizeHint().width();
    }
    if (total <= width())
        return;
    for (qsizetype i = 1; i + 1 < m_allButtons.size(); ++i) {
        KXNavigationBarButton *const button = m_allButtons.at(i);
        m_overflowedButtons.append(button);
        m_buttons.removeOne(button);
        total -= button->sizeHint().width();
        if (width() > total)
            break;
    }
    if (!m_overflowedButtons.isEmpty())
        m_buttons.insert(1, m_overflowButton);
}

/// As wide as they want to be; where that is too much the last gives way, then the first.
QList<int> KXNavigationBar::widths() const
{
    QList<int> wanted;
    for (const QWidget *button : m_buttons)
        wanted.append(button->sizeHint().width());
    int excess = std::accumulate(wanted.begin(), wanted.end(), -width());
    for (const qsizetype i : { m_buttons.size() - 1, qsizetype(0) }) {
        if (excess <= 0 || i < 0)
            break;
        const int given = std::min(excess, std::max(0, wanted[i] - m_buttons[i]->minimumSizeHint().width()));
        wanted[i] -= given;
        excess -= given;
    }
    return wanted;
}

void KXNavigationBar::layOut(bool animated)
{
    const QList<QWidget *> before = m_buttons;
    m_slide.finish();
    overflow();
    const QList<int> wide = widths();
    int x = 0;
    QWidget *previous = nullptr;
    for (qsizetype i = 0; i < m_buttons.size(); ++i) {
        QWidget *const button = m_buttons.at(i);
        const QRect place = QStyle::visualRect(layoutDirection(), rect(), QRect(x, 0, wide.at(i), height()));
        x += wide.at(i);
        if (animated && before.contains(button))
            m_slide.add(button, "geometry", place);
        else
            button->setGeometry(place);
        if (previous)
            setTabOrder(previous, button);
        previous = button;
        button->show();
    }
    for (KXNavigationBarButton *button : std::as_const(m_overflowedButtons))
        button->hide();
    m_overflowButton->setVisible(m_buttons.contains(m_overflowButton));
    m_slide.start();
}

void KXNavigationBar::resizeEvent(QResizeEvent *event)
{
    KXThemeableView::resizeEvent(event);
    layOut(false);
}

void KXNavigationBar::changeEvent(QEvent *event)
{
    KXThemeableView::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::LayoutDirectionChange)
        layOut(false);
}

void KXNavigationBar::popToItem(const QObject *sender)
{
    KXNavigationItem *item = nullptr;
    if (const auto *const button = qobject_cast<const KXNavigationBarButton *>(sender))
        item = button->item();
    else if (const auto *const entry = qobject_cast<const QAction *>(sender))
        item = qobject_cast<KXNavigationItem *>(entry->data().value<QPointer<QObject>>().data());
    if (item && m_delegate)
        m_delegate->shouldPopToItem(*this, item);
}

void KXNavigationBar::showOverflowMenu()
{
    m_overflowMenu->validate();
    const QPoint corner(layoutDirection() == Qt::RightToLeft ? m_overflowButton->width() : 0,
        m_overflowButton->height() + OverflowMenuOffset);
    m_overflowMenu->popup(m_overflowButton->mapToGlobal(corner));
}

void KXNavigationBar::moveFocus(const QWidget *from, int step)
{
    const qsizetype at = m_buttons.indexOf(from) + step;
    if (at >= 0 && at < m_buttons.size())
        m_buttons.at(at)->setFocus(Qt::OtherFocusReason);
}

bool KXNavigationBar::eventFilter(QObject *object, QEvent *event)
{
    const int key = event->type() == QEvent::KeyPress ? static_cast<QKeyEvent *>(event)->key() : 0;
    if (key != Qt::Key_Left && key != Qt::Key_Right)
        return KXThemeableView::eventFilter(object, event);
    const bool onwards = (key == Qt::Key_Right) == (layoutDirection() == Qt::LeftToRight);
    moveFocus(qobject_cast<QWidget *>(object), onwards ? 1 : -1);
    return true;
}
