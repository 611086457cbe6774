// Which presets have room in the bar, and where their buttons lie.

#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBar.h>

#include <algorithm>

#include <QEvent>
#include <QStyle>

#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarPresetButton.h>
#include <kestrixkit/foundation/KXObserver.h>

using namespace Qt::StringLiterals;

QSize KXFilterSetPresetsBar::sizeOf(const Preset &preset) const
{
    const Button *const button = m_buttons.value(preset.get());
    return button ? button->sizeHint() : Button::sizeForPreset(*preset, m_identifier, fontMetrics());
}

QSize KXFilterSetPresetsBar::sizeHint() const
{
    if (m_width < 0) {
        m_width = 0;
        for (const Preset &preset : m_presets)
            m_width += sizeOf(preset).width() + spacing;
    }
    return { m_width, qMax(m_overflowButton->sizeHint().height(), fontMetrics().height() + 8) };
}

QSize KXFilterSetPresetsBar::minimumSizeHint() const
{
    return { m_overflowButton->sizeHint().width(), sizeHint().height() };
}

bool KXFilterSetPresetsBar::hasRoomForAll() const
{
    int needed = 0;
    return std::all_of(m_presets.begin(), m_presets.end(), [&](const Preset &preset) {
        needed += sizeOf(preset).width() + spacing;
        return needed <= width();
    });
}

void KXFilterSetPresetsBar::arrange(bool animated)
{
    const QSize overflow = m_overflowButton->sizeHint();
    const int available = hasRoomForAll() ? width() : width() - overflow.width() - overflowSpacing;
    const auto placed = [this](int left, QSize size) {
        return QStyle::visualRect(layoutDirection(), rect(), QRect(QPoint(left, (height() - size.height()) / 2), size));
    };
    m_slide.finish();
    const qsizetype before = m_buttons.size();
    QSet<const Button *> shown;
    int left = 0;
    for (m_shownCount = 0; m_shownCount < m_presets.size(); ++m_shownCount) {
        const Preset &preset = m_presets[m_shownCount];
        const QSize size = sizeOf(preset);
        if (size.width() > available - left)
            break; // and all after it, however small
        Button *const made = m_buttons.value(preset.get());
        Button *const button = made ? made : createPresetButtonForPreset(preset);
        const QRect place = placed(left, size);
        left += size.width() + spacing;
        if (animated && button->isVisible() && KXAnimationGroup::areAnimationsEnabled()) {
            button->resize(place.size());
            m_slide.add(button, "pos", place.topLeft());
        } else {
            button->setGeometry(place);
        }
        button->show();
        shown.insert(button);
    }
    for (Button *const button : std::as_const(m_buttons)) {
        if (!shown.contains(button))
            button->hide();
    }
    m_slide.start([this] {
        if (std::exchange(m_layOutAfterSlide, false))
            titlesDidChange();
    });
    watchHiddenCounts();
    m_overflowButton->setGeometry(placed(width() - overflow.width(), overflow));
    m_overflowButton->setVisible(m_shownCount < m_presets.size());
    if (animated || m_buttons.size() != before)
        restoreTabOrder();
}

/// A badge that comes or goes has another width. Buttons that are seen ask for another layout themselves.
void KXFilterSetPresetsBar::watchHiddenCounts()
{
    QHash<const KXFilterSetPreset *, std::shared_ptr<KXObserver>> watched;
    for (const Preset &preset : m_presets.mid(m_shownCount)) {
        std::shared_ptr<KXObserver> &observer = watched[preset.get()];
        observer = m_hiddenCounts.take(preset.get());
        if (!observer)
            observer = KXObserver::observerFor(preset.get(), u"counts"_s, {},
                [this](const KXKeyValueChange &) { m_layOutSoon.start(0, [this] { titlesDidChange(); }); });
    }
    m_hiddenCounts = std::move(watched);
}

void KXFilterSetPresetsBar::restoreTabOrder()
{
    QWidget *last = nullptr;
    for (Button *const button : presetButtons()) {
        if (last)
            setTabOrder(last, button);
        last = button;
    }
    if (last)
        setTabOrder(last, m_overflowButton);
}

void KXFilterSetPresetsBar::titlesDidChange()
{
    m_width = -1;
    arrange(false);
    updateGeometry();
}

void KXFilterSetPresetsBar::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    arrange(false);
}

bool KXFilterSetPresetsBar::event(QEvent *event)
{
    const bool handled = QWidget::event(event);
    // A title or a badge has another width, which nobody is told while the bar is hidden. Buttons that come and go ask
    // for a layout as well, which would end the sliding of the others.
    if (event->type() == QEvent::LayoutRequest && m_slide.isRunning()) {
        m_layOutAfterSlide = true;
    } else if (event->type() == QEvent::LayoutRequest || event->type() == QEvent::Show) {
        titlesDidChange();
    } else if (event->type() == QEvent::LayoutDirectionChange) {
        arrange(false);
    }
    return handled;
}
