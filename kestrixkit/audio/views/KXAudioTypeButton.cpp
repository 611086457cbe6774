#include <kestrixkit/audio/views/KXAudioTypeButton.h>

#include <array>

#include <QPainter>
#include <QStyleOptionButton>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

namespace {

struct AudioTypeLooks
{
    const char *title;
    QColor (KXTheme::*colour)() const;
};

constexpr std::array<AudioTypeLooks, 7> audioTypes { {
    { QT_TRANSLATE_NOOP("KestrixKit", "Mix"), &KXTheme::audioTypeButtonMixColour },
    { QT_TRANSLATE_NOOP("KestrixKit", "Track"), &KXTheme::audioTypeButtonTrackColour },
    { QT_TRANSLATE_NOOP("KestrixKit", "Stem"), &KXTheme::audioTypeButtonStemColour },
    { QT_TRANSLATE_NOOP("KestrixKit", "Part"), &KXTheme::audioTypeButtonPartColour },
    { QT_TRANSLATE_NOOP("KestrixKit", "Loop"), &KXTheme::audioTypeButtonLoopColour },
    { QT_TRANSLATE_NOOP("KestrixKit", "One-Shot"), &KXTheme::audioTypeButtonOneShotColour },
    { QT_TRANSLATE_NOOP("KestrixKit", "SFX"), &KXTheme::audioTypeButtonSFXColour },
} };

const AudioTypeLooks *audioTypeLooks(int value)
{
    return value >= 0 && size_t(value) < audioTypes.size() ? &audioTypes[size_t(value)] : nullptr;
}

QFont audioTypeFont(const QFont &otherwise)
{
    const auto &theme = KXThemeManager::sharedManager().theme();
    return theme ? theme->audioTypeButtonFont() : otherwise;
}

}

QString KXAudioTypeButtonCell::title() const
{
    const AudioTypeLooks *const looks = audioTypeLooks(m_audioTypeValue);
    return looks ? KXLocalizedString(looks->title) : QString();
}

QColor KXAudioTypeButtonCell::typeColour() const
{
    const AudioTypeLooks *const looks = audioTypeLooks(m_audioTypeValue);
    const auto &theme = KXThemeManager::sharedManager().theme();
    return looks && theme ? (theme.get()->*looks->colour)() : QColor();
}

void KXAudioTypeButtonCell::paint(QPainter &painter, const QStyleOptionButton &option) const
{
    const auto &theme = KXThemeManager::sharedManager().theme();
    const bool enabled = option.state & QStyle::State_Enabled;
    const QRectF plate = QRectF(option.rect).adjusted(1, 1, -1, -2);
    painter.save();
    // Light from above: what shows of it is the edge below the badge.
    if (typeColour().isValid())
        KXControlPainter::plate(painter, plate.translated(0, 1), QColor::fromRgbF(1, 1, 1, 0.85F), {});
    painter.setOpacity(option.state & QStyle::State_Sunken ? 0.8 : 1);
    KXControlPainter::plate(painter, plate, typeColour().isValid() ? QBrush(typeColour()) : QBrush(),
        theme ? theme->borderColour() : option.palette.color(QPalette::Mid));
    QColor text = option.palette.color(QPalette::ButtonText);
    KXShadow shadow;
    if (theme) {
        text = enabled ? theme->audioTypeButtonTextColour() : theme->audioTypeButtonDisabledTextColour();
        shadow = enabled ? theme->audioTypeTextShadow() : theme->audioTypeDisabledTextShadow();
    }
    painter.setFont(audioTypeFont(painter.font()));
    KXControlPainter::text(painter, plate.adjusted(5, 0, -5, 0), Qt::AlignCenter, title(), text, shadow);
    if (option.state & QStyle::State_HasFocus)
        KXControlPainter::focusRing(painter, option.rect, option.palette);
    painter.restore();
}

KXAudioTypeButton::KXAudioTypeButton(QWidget *parent)
    : QPushButton(parent)
    , m_theme(KXNotificationCenter::defaultCenter().addObserver(
          KXThemeDidChangeNotification, &KXThemeManager::sharedManager(), [this](const KXNotification &) {
              updateGeometry();
              update();
          }))
{
    setAccessibleName(KXLocalizedString("Audio type"));
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void KXAudioTypeButton::setAudioTypeValue(int value)
{
    m_cell.setAudioTypeValue(value);
    const QString title = m_cell.title();
    setAccessibleName(title.isEmpty() ? KXLocalizedString("Audio type") : title);
    updateGeometry();
    update();
}

QSize KXAudioTypeButton::sizeHint() const
{
    const QFontMetrics metrics(audioTypeFont(font()));
    return { qMax(metrics.horizontalAdvance(m_cell.title()) + 16, 32), metrics.height() + 6 };
}

void KXAudioTypeButton::paintEvent(QPaintEvent *)
{
    QStyleOptionButton option;
    initStyleOption(&option);
    QPainter painter(this);
    painter.setLayoutDirection(layoutDirection());
    m_cell.paint(painter, option);
}
