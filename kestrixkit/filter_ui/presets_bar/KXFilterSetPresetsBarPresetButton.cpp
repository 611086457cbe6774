#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarPresetButton.h>

#include <QApplication>
#include <QHelpEvent>
#include <QLocale>
#include <QPainter>
#include <QStyleOptionButton>
#include <QToolTip>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXBadge.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>
#include <kestrixkit/toolkit/KXMenu.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int barButtonBadgeGap = 5; // in points, before the badge
constexpr int barButtonArrow = 14; // room for a folder's arrow
const QColor barBadgeColour(168, 223, 16, 204); // the same in every theme

int barBadgeRoom(const QImage &badge)
{
    return badge.isNull() ? 0 : qRound(badge.deviceIndependentSize().width()) + barButtonBadgeGap;
}

}

namespace {

QSize barButtonSize(const QFontMetrics &metrics, const QString &text, int badgeRoom, bool isFolder)
{
    const int width = qMin(KXFilterSetPresetsBarButtonCell::longestTitle, metrics.horizontalAdvance(text) + 1);
    return { 2 * KXControlPainter::padding + width + badgeRoom + (isFolder ? barButtonArrow : 0),
        metrics.height() + 8 };
}

}

QSize KXFilterSetPresetsBarButtonCell::sizeHint(const QStyleOptionButton &option) const
{
    QString text = option.text;
    return barButtonSize(option.fontMetrics, text.replace(u"&&"_s, u"&"_s), barBadgeRoom(m_badgeImage),
        option.features & QStyleOptionButton::HasMenu);
}

void KXFilterSetPresetsBarButtonCell::paintInterior(
    QPainter &painter, const QStyleOptionButton &option, const QRect &rect) const
{
    if (m_badgeImage.isNull()) {
        KXThemeableButtonCell::paintInterior(painter, option, rect);
        return;
    }
    const int arrow = option.features & QStyleOptionButton::HasMenu ? barButtonArrow : 0;
    const QSizeF badge = m_badgeImage.deviceIndependentSize();
    const auto visual = [&](const QRect &part) { return QStyle::visualRect(option.direction, rect, part); };
    const QRect at(rect.right() + 1 - arrow - int(badge.width()), rect.center().y() - int(badge.height()) / 2 + 1,
        int(badge.width()), int(badge.height()));
    painter.setOpacity(option.state & QStyle::State_Enabled ? 1 : 0.5);
    painter.drawImage(visual(at), m_badgeImage);
    painter.setOpacity(1);
    if (arrow > 0) {
        const QRect room(rect.right() + 5 - arrow, rect.top(), arrow, rect.height());
        KXControlPainter::chevron(painter, QRectF(visual(room)).center(), 7, 0, textColour(option));
    }
    const QRect text(rect.left(), rect.top(), at.left() - barButtonBadgeGap - rect.left() + 1, rect.height());
    KXControlPainter::text(painter, visual(text), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextShowMnemonic, option.text,
        textColour(option));
}

KXFilterSetPresetsBarPresetButton::KXFilterSetPresetsBarPresetButton(
    const KXRef<KXFilterSetPreset> &preset, QWidget *parent)
    : KXThemeableButton(new KXFilterSetPresetsBarButtonCell, parent)
    , m_barCell(static_cast<KXFilterSetPresetsBarButtonCell *>(cell()))
{
    m_barCell->setRepresentedObject(preset);
    setThemeStyleName(KXFilterPresetsBarButtonStyles);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    m_titleObserver
        = KXObserver::observerFor(preset.get(), u"title"_s, {}, [this](const KXKeyValueChange &) { titleDidChange(); });
    m_countsObserver = KXObserver::observerFor(
        preset.get(), u"counts"_s, {}, [this](const KXKeyValueChange &) { countsDidChange(); });
    titleDidChange();
}

KXFilterSetPresetsBarPresetButton::~KXFilterSetPresetsBarPresetButton() = default;

QSize KXFilterSetPresetsBarPresetButton::sizeHint() const
{
    QStyleOptionButton option;
    initStyleOption(&option);
    return m_barCell->sizeHint(option);
}

void KXFilterSetPresetsBarPresetButton::paintEvent(QPaintEvent *)
{
    QStyleOptionButton option;
    initStyleOption(&option);
    QPainter painter(this);
    m_barCell->paint(painter, option);
}

qint64 KXFilterSetPresetsBarPresetButton::countOf(const KXFilterSetPreset &preset, const QString &identifier)
{
    // A folder may have a count of its own; else it is the sum.
    const std::optional<qint64> own = preset.countForContextIdentifier(identifier);
    return own ? *own : preset.counts().value_or(KXCounts()).value(identifier);
}

QSize KXFilterSetPresetsBarPresetButton::sizeForPreset(
    const KXFilterSetPreset &preset, const QString &identifier, const QFontMetrics &metrics)
{
    const int badge = KXBadgeCell::sizeForCount(countOf(preset, identifier), QApplication::font()).width();
    return barButtonSize(
        metrics, preset.title().simplified(), badge > 0 ? badge + barButtonBadgeGap : 0, preset.isFolder());
}

qint64 KXFilterSetPresetsBarPresetButton::count() const
{
    return filterSetPreset() ? countOf(*filterSetPreset(), m_identifier) : 0;
}

void KXFilterSetPresetsBarPresetButton::setCountsContextIdentifier(const QString &identifier)
{
    m_identifier = identifier;
    countsDidChange();
}

bool KXFilterSetPresetsBarPresetButton::event(QEvent *event)
{
    // Ages go on by themselves: said anew to whoever comes near.
    if (m_shownCount > 0 && (event->type() == QEvent::FocusIn || event->type() == QEvent::Enter))
        updateAccessibleName();
    if (event->type() != QEvent::ToolTip || !toolTip().isEmpty() || m_shownCount <= 0 || !filterSetPreset())
        return KXThemeableButton::event(event);
    QToolTip::showText(static_cast<QHelpEvent *>(event)->globalPos(),
        KXStringWithFormat(
            "%@: %@", filterSetPreset()->title().simplified(), withAge(KXClock::locale().toString(m_shownCount))),
        this);
    return true;
}

QString KXFilterSetPresetsBarPresetButton::withAge(const QString &count) const
{
    const QString age = filterSetPreset()->countNoteForContextIdentifier(m_identifier);
    return age.isEmpty() ? count : count + u", "_s + age;
}

void KXFilterSetPresetsBarPresetButton::updateAccessibleName()
{
    const QString title = filterSetPreset()->title().simplified();
    const QString name = m_shownCount > 0 ? withAge(KXStringWithFormat("%@, %ld", title, m_shownCount)) : title;
    if (name != accessibleName())
        setAccessibleName(name);
}

void KXFilterSetPresetsBarPresetButton::titleDidChange()
{
    updateAccessibleName();
    QString title = filterSetPreset()->title().simplified();
    setText(title.replace(u'&', u"&&"_s));
    updateGeometry();
}

void KXFilterSetPresetsBarPresetButton::countsDidChange()
{
    const qint64 count = this->count();
    if (count == m_shownCount) {
        if (count > 0 && !filterSetPreset()->isFolder()) // which would look at all that is in it for each of them
            updateAccessibleName(); // it may have been counted anew
        return;
    }
    const bool looksTheSame = KXBadgeCell::textForCount(count) == KXBadgeCell::textForCount(m_shownCount);
    m_shownCount = count;
    if (!looksTheSame)
        m_barCell->setBadgeImage(KXBadgeCell::image(count, barBadgeColour, Qt::white, devicePixelRatioF()));
    titleDidChange();
    update();
}

KXFilterSetPresetsBarPresetFolderButton::KXFilterSetPresetsBarPresetFolderButton(
    const KXRef<KXFilterSetPreset> &preset, QWidget *parent)
    : KXFilterSetPresetsBarPresetButton(preset, parent)
    , m_menu(new KXMenu(this))
{
    setThemeStyleName(KXFilterPresetsBarFolderButtonStyles);
    m_menu->setToolTipsVisible(true);
    m_menu->setAccessibleName(preset->title());
    setMenu(m_menu);
}
