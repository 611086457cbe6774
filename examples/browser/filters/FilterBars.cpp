#include "filters/FilterBars.h"

#include <QActionGroup>
#include <QBoxLayout>
#include <QKeyEvent>

#include <kestrixkit/filter_ui/editors/KXFilterBar.h>
#include <kestrixkit/filter_ui/editors/KXFilterBarFilterView.h>
#include <kestrixkit/filter_ui/editors/KXFilterButton.h>
#include <kestrixkit/filter_ui/editors/KXFilterSetViewController.h>
#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarViewController.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>

FilterBars::FilterBars(
    KXFilterSetPresetsBarViewController *presets, KXFilterSetViewController *filters, const Words &words)
    : m_filters(filters)
    , m_field(new KXThemeableTextField)
    , m_group(new QActionGroup(this))
{
    auto *const rows = new QVBoxLayout(this);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(0);
    rows->addWidget(addBar(m_top));
    m_top->setContentsMargins(0, 0, 6, 0);
    m_top->addWidget(presets->view(), 1);
    m_field->setThemeStyleName(KXTextFieldStyles);
    m_field->setPlaceholderText(words.placeholder);
    m_field->setAccessibleName(words.name);
    m_field->setClearButtonEnabled(true);
    m_field->setFixedWidth(words.width);
    m_field->installEventFilter(this);
    connect(m_field, &QLineEdit::textChanged, this,
        [this, pause = words.pause] { m_typing.start(pause, [this] { Q_EMIT wordsDidChange(); }); });
    m_top->addWidget(m_field);
    QHBoxLayout *bottom = nullptr;
    rows->addWidget(addBar(bottom));
    bottom->setContentsMargins(4, 0, 0, 0);
    bottom->addWidget(filters->view());
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    m_group->setExclusionPolicy(QActionGroup::ExclusionPolicy::None);
    makeCommands(words.command);
}

QWidget *FilterBars::addBar(QHBoxLayout *&line)
{
    auto *const bar = new KXThemeableView;
    bar->setThemeStyleName(KXToolbarStyles);
    line = new QHBoxLayout(bar);
    return bar;
}

void FilterBars::addState(QWidget *widget) { m_top->insertWidget(m_top->count() - 1, widget); }

QString FilterBars::words() const { return m_field->text(); }

void FilterBars::setWords(const QString &words)
{
    m_field->setText(words);
    m_typing.cancel();
}

bool FilterBars::eventFilter(QObject *object, QEvent *event)
{
    if (object == m_field && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Escape)
            m_field->clear();
        if (key == Qt::Key_Escape || key == Qt::Key_Return || key == Qt::Key_Enter || key == Qt::Key_Down) {
            if (m_typing.isPending()) {
                m_typing.cancel();
                Q_EMIT wordsDidChange();
            }
            Q_EMIT wordsDidEnd();
            return true;
        }
    }
    return QWidget::eventFilter(object, event);
}

// Commands

QAction *FilterBars::addCommand(const QString &title, const QKeySequence &keys, const std::function<void()> &perform)
{
    auto *const action = new QAction(title, m_group);
    action->setShortcut(keys);
    connect(action, &QAction::triggered, this, perform);
    m_commands.append(action);
    return action;
}

void FilterBars::makeCommands(const QString &fieldCommand)
{
    // "/" is a letter where text is edited: there it does not get this far.
    addCommand(fieldCommand, {}, [this] {
        m_field->setFocus(Qt::ShortcutFocusReason);
        m_field->selectAll();
    })->setShortcuts({ QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_F), QKeySequence(Qt::Key_Slash) });
    addCommand(tr("&Add Filter…"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_A),
        [this] { m_filters->showFilterSetManager(); });
    addCommand(tr("&Edit Filters"), QKeySequence(Qt::CTRL | Qt::Key_E), [this] { focusFilters(); });
    addCommand(tr("&Save Filters as Preset…"), QKeySequence(Qt::CTRL | Qt::Key_S),
        [this] { m_filters->saveAsPreset(m_filters->saveButton()); });
    addCommand(tr("Enable All &Filters"), {}, [this] { m_filters->enableAllFilters(); });
    addCommand(tr("&Disable All Filters"), {}, [this] { m_filters->disableAllFilters(); });
    addCommand(tr("&Delete All Filters"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Backspace),
        [this] { m_filters->removeAllFilters(); });
}

void FilterBars::setCommandsShown(bool shown) { m_group->setVisible(shown); }

void FilterBars::focusFilters()
{
    const QList<KXFilterBarFilterView *> &views = m_filters->filterBar()->filterViews();
    if (views.isEmpty())
        m_filters->addButton()->setFocus(Qt::ShortcutFocusReason);
    else
        views.first()->button()->setFocus(Qt::ShortcutFocusReason);
}
