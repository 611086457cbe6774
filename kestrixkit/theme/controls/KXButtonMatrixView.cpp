#include <kestrixkit/theme/controls/KXButtonMatrixView.h>

#include <QGridLayout>
#include <QKeyEvent>

#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>

namespace {

constexpr int matrixSpacing = 4;

}

KXButtonMatrixView::KXButtonMatrixView(QWidget *parent)
    : KXThemed<QWidget>(parent)
    , m_buttonStyleName(KXButtonStyles)
    , m_selectedStyleName(KXDefaultButtonStyles)
{
    auto *const grid = new QGridLayout(this);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setSpacing(matrixSpacing);
}

void KXButtonMatrixView::setItems(const QList<KXButtonMatrixItem> &items, int columns)
{
    for (KXThemeableButton *const button : std::exchange(m_buttons, {})) {
        button->removeEventFilter(this);
        button->hide();
        button->deleteLater(); // one of its events may have led here
    }
    auto *const grid = static_cast<QGridLayout *>(layout());
    grid->setColumnStretch(m_columns, 0);
    m_items = items;
    m_columns = qMax(1, columns);
    m_selected = -1;
    grid->setColumnStretch(m_columns, 1); // behind the last one
    for (int i = 0; i < m_items.size(); ++i) {
        QString text = m_items[i].title;
        auto *const button = new KXThemeableButton(text.replace(u'&', QStringLiteral("&&")), this);
        button->setAccessibleName(m_items[i].title);
        button->setToolTip(m_items[i].title);
        button->setCheckable(true);
        button->setThemeStyleName(m_buttonStyleName);
        button->installEventFilter(this);
        connect(button, &QPushButton::clicked, this, [this, i] { press(i); });
        grid->addWidget(button, i / m_columns, i % m_columns);
        m_buttons.append(button);
    }
    setCurrent(0);
    setButtonSize(m_buttonSize);
}

void KXButtonMatrixView::setButtonSize(const QSize &size)
{
    m_buttonSize = size;
    if (!size.isValid())
        return;
    // Another language, or a larger font, may need more; a title without end need not be shown whole.
    int width = size.width();
    for (const KXThemeableButton *const button : std::as_const(m_buttons))
        width = qMax(width, button->sizeHint().width());
    width = qMin(width, size.width() * 3 / 2);
    for (KXThemeableButton *const button : std::as_const(m_buttons))
        button->setFixedSize(width, qMax(size.height(), button->fontMetrics().height() + 2));
}

void KXButtonMatrixView::setButtonStyleNames(const QString &name, const QString &selected)
{
    m_buttonStyleName = name;
    m_selectedStyleName = selected;
    setSelectedIndex(m_selected);
}

std::optional<KXButtonMatrixItem> KXButtonMatrixView::selectedItem() const
{
    return m_selected < 0 ? std::nullopt : std::optional(m_items[m_selected]);
}

void KXButtonMatrixView::setSelectedIndex(int index)
{
    m_selected = index < m_buttons.size() ? qMax(-1, index) : -1;
    for (int i = 0; i < m_buttons.size(); ++i) {
        m_buttons[i]->setChecked(i == m_selected);
        m_buttons[i]->setThemeStyleName(i == m_selected ? m_selectedStyleName : m_buttonStyleName);
    }
    setCurrent(qMax(0, m_selected));
}

/// Tab stops at one of them.
void KXButtonMatrixView::setCurrent(int index)
{
    for (int i = 0; i < m_buttons.size(); ++i)
        m_buttons[i]->setFocusPolicy(i == index ? Qt::StrongFocus : Qt::ClickFocus);
    if (index < m_buttons.size())
        setFocusProxy(m_buttons[index]);
}

void KXButtonMatrixView::focusSelection()
{
    if (!m_buttons.isEmpty())
        m_buttons[qMax(0, m_selected)]->setFocus(Qt::TabFocusReason);
}

void KXButtonMatrixView::press(int index)
{
    setSelectedIndex(index);
    Q_EMIT selectionDidChange(); // may end the view
}

/// -1 where there is none.
int KXButtonMatrixView::neighbour(int index, int key) const
{
    const bool mirrored = layoutDirection() == Qt::RightToLeft;
    const int count = int(m_buttons.size());
    int to = -1;
    switch (key) {
    case Qt::Key_Left:
    case Qt::Key_Right:
        to = index + ((key == Qt::Key_Right) != mirrored ? 1 : -1);
        break;
    case Qt::Key_Up:
        to = index - m_columns;
        break;
    case Qt::Key_Down:
        to = index + m_columns < count || index / m_columns == (count - 1) / m_columns ? index + m_columns : count - 1;
        break;
    case Qt::Key_Home:
        to = 0;
        break;
    case Qt::Key_End:
        to = count - 1;
        break;
    default:
        break;
    }
    return to >= 0 && to < count ? to : -1;
}

bool KXButtonMatrixView::eventFilter(QObject *object, QEvent *event)
{
    const qsizetype index = event->type() == QEvent::KeyPress ? m_buttons.indexOf(object) : -1;
    if (index < 0)
        return KXThemed<QWidget>::eventFilter(object, event);
    const int key = static_cast<QKeyEvent *>(event)->key();
    if (key == Qt::Key_Return || key == Qt::Key_Enter) {
        m_buttons[index]->click();
        return true;
    }
    const int to = neighbour(int(index), key);
    if (to >= 0) {
        setCurrent(to);
        m_buttons[to]->setFocus(Qt::TabFocusReason);
    }
    const bool isArrow = key == Qt::Key_Left || key == Qt::Key_Right || key == Qt::Key_Up || key == Qt::Key_Down;
    return to >= 0 || isArrow;
}
