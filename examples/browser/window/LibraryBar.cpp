#include "window/LibraryBar.h"

#include <QAction>
#include <QLabel>
#include <QLayout>

#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>

#include "window/BrowserStyle.h"

using namespace Qt::StringLiterals;

namespace {

/// An icon for a command, in the toolbar.
KXThemeableButton *toolButton(QAction *action, const QString &icon)
{
    auto *button = new KXThemeableButton;
    button->setIcon(QIcon(u":/kestrixkit/icons/%1.svg"_s.arg(icon)));
    button->setIconSize({ 18, 18 });
    button->setThemeStyleName(KXToolbarButtonStyles);
    const auto follow = [button, action] {
        QString name = action->text();
        name.remove(u'&');
        button->setAccessibleName(name);
        button->setToolTip(name);
        button->setEnabled(action->isEnabled());
        button->setCheckable(action->isCheckable());
        button->setChecked(action->isChecked());
    };
    follow();
    QObject::connect(action, &QAction::changed, button, follow);
    QObject::connect(button, &QPushButton::clicked, action, &QAction::trigger);
    return button;
}

} // namespace

LibraryBar::LibraryBar(QAction *undo, QAction *redo, QAction *lightTheme, QWidget *searchField)
    : QToolBar(tr("Library"))
    , m_title(new QLabel(tr("Library")))
    , m_summary(new QLabel)
{
    setMovable(false);
    setContextMenuPolicy(Qt::PreventContextMenu);
    // Left of the title, whose length changes.
    addWidget(toolButton(undo, u"undo"_s));
    addWidget(toolButton(redo, u"redo"_s));
    auto *gap = new QWidget;
    gap->setFixedWidth(2 * BrowserStyle::margin);
    addWidget(gap);
    m_title->setObjectName(u"placeTitle"_s);
    m_title->setTextFormat(Qt::PlainText);
    QFont font = m_title->font();
    font.setPointSizeF(font.pointSizeF() * 1.5);
    font.setBold(true);
    m_title->setFont(font);
    addWidget(m_title);
    auto *space = new QWidget;
    space->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    addWidget(space);
    m_summary->setAccessibleDescription(tr("Summary of the library"));
    m_summary->setForegroundRole(QPalette::PlaceholderText);
    m_summary->setContentsMargins(0, 0, BrowserStyle::margin, 0);
    addWidget(m_summary);
    addWidget(searchField);
    addWidget(toolButton(lightTheme, u"theme"_s));
}

void LibraryBar::addNavigation(QAction *back, QAction *forward)
{
    QAction *const first = actions().constFirst();
    insertWidget(first, toolButton(back, u"back"_s));
    insertWidget(first, toolButton(forward, u"forward"_s));
}

void LibraryBar::setTitle(const QString &title)
{
    m_title->setText(title.isEmpty() ? tr("Library") : title);
    layout()->invalidate(); // nobody tells it while the window is hidden
}
