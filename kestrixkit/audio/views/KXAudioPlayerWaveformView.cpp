#include <kestrixkit/audio/views/KXAudioPlayerWaveformView.h>

#include <cmath>

#include <QHelpEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QToolTip>

#include <kestrixkit/audio/KXAudioPlayerManager.h>
#include <kestrixkit/audio/KXWaveformWindow.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/KXThemeManager.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int waveformViewFrameMilliseconds = 33;
constexpr double waveformViewShortest = 0.02; // seconds in view
constexpr double waveformViewDecodes = 60; // seconds: what is shorter may be decoded
constexpr double waveformViewMostStretch = 8; // pixels a cell
constexpr double waveformViewStep = 1.25; // of a notch of the wheel

std::shared_ptr<KXAudioPlayer> waveformViewPlayer()
{
    const auto manager = KXAudioPlayerManager::sharedInstance();
    return manager ? manager->audioPlayer() : nullptr;
}

QString waveformViewTime(double seconds)
{
    const auto tenths = qint64(seconds * 10);
    return u"%1:%2.%3"_s.arg(tenths / 600).arg(tenths / 10 % 60, 2, 10, QLatin1Char('0')).arg(tenths % 10);
}

}

KXAudioPlayerWaveformView::KXAudioPlayerWaveformView(QWidget *parent)
    : QWidget(parent)
    , m_layer(std::make_unique<KXAudioPlayerWaveformLayer>())
    , m_theme(KXNotificationCenter::defaultCenter().addObserver(KXThemeDidChangeNotification,
          &KXThemeManager::sharedManager(), [this](const KXNotification &) { changeWaveform(); }))
{
    setAccessibleName(KXLocalizedString("Waveform"));
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    m_clock.setInterval(waveformViewFrameMilliseconds);
    connect(&m_clock, &QTimer::timeout, this, &KXAudioPlayerWaveformView::follow);
    m_decoder.setMaxConcurrentOperationCount(1); // what is out of date ends at its next block
    m_decoder.setName(u"kx-waveform"_s);
}

KXAudioPlayerWaveformView::~KXAudioPlayerWaveformView()
{
    if (m_decoding)
        *m_decoding = true;
}

QSize KXAudioPlayerWaveformView::sizeHint() const { return { 400, 48 }; }

void KXAudioPlayerWaveformView::setPlayerItem(const KXAudioPlayerItemPointer &item)
{
    m_layer = std::make_unique<KXAudioPlayerWaveformLayer>(item);
    m_url = item ? item->audioFileURL() : QUrl();
    m_pyramid.reset();
    m_gains.clear();
    m_gainsAreNearly = false;
    m_layer->setBounds(size());
    changeWaveform();
}

void KXAudioPlayerWaveformView::setPyramid(std::shared_ptr<const KXWaveformPyramid> pyramid)
{
    m_pyramid = std::move(pyramid);
    changeWaveform();
}

void KXAudioPlayerWaveformView::setStemGains(std::vector<float> gains, bool areNearly)
{
    m_gains = std::move(gains);
    m_gainsAreNearly = areNearly;
    changeWaveform();
}

void KXAudioPlayerWaveformView::changeWaveform()
{
    m_isStale = true;
    if (m_decoding)
        *m_decoding = true;
    m_decoding.reset();
    update();
}

/// Where the player is, as often as it can be seen.
void KXAudioPlayerWaveformView::follow()
{
    m_layer->display();
    const double head = m_layer->playerHeadLayer().position.x();
    if (std::abs(head - m_shownHead) >= 0.5) {
        m_shownHead = head;
        update();
    }
}

void KXAudioPlayerWaveformView::draw()
{
    m_isStale = false;
    m_isEstimate = false;
    if (!m_pyramid || m_pyramid->frames() == 0 || size().isEmpty()) {
        m_layer->setContents({}, {});
        return;
    }
    const double rate = m_pyramid->sampleRate();
    const double length = m_layer->visibleLength() > 0 ? m_layer->visibleLength() : m_pyramid->duration();
    const auto from = qint64(m_layer->visibleStart() * rate);
    const auto to = from + std::max<qint64>(1, std::llround(length * rate));
    const int columns = width();
    bool isEstimate = false;
    const KXWaveformColumns known = m_pyramid->columnsOfStems(m_gains, from, to, columns, &isEstimate);
    showColumns(known, isEstimate || m_gainsAreNearly);
    const double pixelsPerCell = double(m_pyramid->framesPerCell()) * columns / double(to - from);
    if (length < waveformViewDecodes && (isEstimate || pixelsPerCell > waveformViewMostStretch))
        decodeWindow(from, to, columns);
}

void KXAudioPlayerWaveformView::decodeWindow(qint64 from, qint64 to, int columns)
{
    m_decoding = std::make_shared<std::atomic<bool>>(false);
    // The gains of a pyramid's mix: that is what is heard, and never the channels apart.
    std::vector<float> gains = m_gains;
    gains.resize(size_t(m_pyramid->stems()), 1);
    m_decoder.cancelAllOperations();
    m_decoder.addBlock([view = QPointer(this), cancelled = m_decoding, url = m_url,
                           window = KXWaveformWindow { from, to, columns, {}, std::move(gains) }] {
        const auto read = window.read(url, cancelled);
        KXMainQueue::async([view, cancelled, read] {
            if (!view || *cancelled || view->m_decoding != cancelled)
                return;
            view->m_decoding.reset();
            if (!read)
                return;
            view->showColumns(*read, view->m_gainsAreNearly);
            view->update();
        });
    });
}

void KXAudioPlayerWaveformView::showColumns(const KXWaveformColumns &columns, bool isEstimate)
{
    const auto &theme = KXThemeManager::sharedManager().theme();
    const QSize pixels = size() * devicePixelRatioF();
    QBrush played = palette().color(QPalette::Highlight);
    if (const auto gradient = theme ? theme->playerWaveformForegroundGradient() : std::nullopt) {
        QLinearGradient down = *gradient;
        down.setCoordinateMode(QGradient::LogicalMode);
        down.setStart(0, 0);
        down.setFinalStop(0, pixels.height());
        played = down;
    }
    const QColor waiting = theme ? theme->disabledTextColour() : palette().color(QPalette::Disabled, QPalette::Text);
    m_isEstimate = isEstimate;
    m_layer->setEstimate(isEstimate);
    m_layer->setContents(KXAudioPlayerWaveformLayer::waveformImage(columns, pixels, waiting),
        KXAudioPlayerWaveformLayer::waveformImage(columns, pixels, played));
}

void KXAudioPlayerWaveformView::zoom(double factor, double x)
{
    const double duration = m_pyramid ? m_pyramid->duration() : 0;
    if (!(duration > 0) || width() <= 0 || !(factor > 0))
        return;
    const double before = m_layer->visibleLength() > 0 ? m_layer->visibleLength() : duration;
    const double after = std::clamp(before * factor, std::min(waveformViewShortest, duration), duration);
    const double place = std::clamp(x / width(), 0.0, 1.0);
    const double start = m_layer->visibleStart() + place * (before - after);
    if (after >= duration)
        m_layer->setVisibleTimes(0, 0);
    else
        m_layer->setVisibleTimes(std::clamp(start, 0.0, duration - after), after);
    m_layer->display();
    changeWaveform();
}

void KXAudioPlayerWaveformView::showAll()
{
    m_layer->setVisibleTimes(0, 0);
    m_layer->display();
    changeWaveform();
}

void KXAudioPlayerWaveformView::seekTo(double x)
{
    const auto player = waveformViewPlayer();
    if (!player || player->currentItem() != m_layer->playerItem() || !(player->duration() > 0))
        return;
    player->setTime(m_layer->timeAtPoint(x));
    m_layer->display();
    update();
    Q_EMIT sought();
}

void KXAudioPlayerWaveformView::paintEvent(QPaintEvent *)
{
    if (m_isStale)
        draw();
    m_layer->display();
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::Text));
    m_layer->paint(painter);
    if (m_hovered >= 0) {
        painter.setOpacity(0.5);
        painter.drawLine(QPointF(m_hovered, 0), QPointF(m_hovered, height()));
        painter.setOpacity(1);
    }
    if (hasFocus())
        painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

void KXAudioPlayerWaveformView::resizeEvent(QResizeEvent *)
{
    m_layer->setBounds(size());
    changeWaveform();
}

void KXAudioPlayerWaveformView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        seekTo(event->position().x());
}

void KXAudioPlayerWaveformView::mouseMoveEvent(QMouseEvent *event)
{
    m_hovered = event->position().x();
    if (event->buttons() & Qt::LeftButton)
        seekTo(m_hovered);
    const double time = m_layer->timeAtPoint(m_hovered);
    Q_EMIT hovered(time);
    if (m_layer->visibleLength() > 0)
        QToolTip::showText(event->globalPosition().toPoint(), waveformViewTime(time), this);
    update();
}

void KXAudioPlayerWaveformView::mouseReleaseEvent(QMouseEvent *event) { m_layer->mouseUp(event); }

void KXAudioPlayerWaveformView::leaveEvent(QEvent *)
{
    m_hovered = -1;
    Q_EMIT hovered(-1);
    update();
}

void KXAudioPlayerWaveformView::wheelEvent(QWheelEvent *event)
{
    const int turn = event->angleDelta().y();
    if (turn == 0)
        return event->ignore();
    zoom(std::pow(waveformViewStep, -turn / 120.0), event->position().x());
    event->accept();
}

void KXAudioPlayerWaveformView::keyPressEvent(QKeyEvent *event)
{
    const auto player = waveformViewPlayer();
    const double step = event->modifiers() & Qt::ShiftModifier ? 1 : 5;
    const double head = m_layer->playerHeadLayer().position.x() + 1;
    bool isSought = false; // seekTo() says so itself
    // Time runs to the right in every language.
    switch (event->key()) {
    case Qt::Key_Left:
    case Qt::Key_Right:
        isSought = player && player->currentItem() == m_layer->playerItem();
        if (isSought)
            event->key() == Qt::Key_Left ? player->scanBackward(step) : player->scanForward(step);
        break;
    case Qt::Key_Home:
    case Qt::Key_End:
        showAll();
        seekTo(event->key() == Qt::Key_Home ? 0 : width());
        break;
    case Qt::Key_Plus:
        zoom(1 / waveformViewStep, head);
        break;
    case Qt::Key_Minus:
        zoom(waveformViewStep, head);
        break;
    case Qt::Key_0:
        showAll();
        break;
    default:
        return QWidget::keyPressEvent(event);
    }
    m_layer->display();
    update();
    if (isSought)
        Q_EMIT sought();
}

bool KXAudioPlayerWaveformView::event(QEvent *event)
{
    // Space and the like belong to the window; arrows that a menu has for itself are wanted here.
    if (event->type() == QEvent::ShortcutOverride) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        const bool plain = !(static_cast<QKeyEvent *>(event)->modifiers() & ~(Qt::ShiftModifier | Qt::KeypadModifier));
        if (plain && (key == Qt::Key_Left || key == Qt::Key_Right || key == Qt::Key_Home || key == Qt::Key_End)) {
            event->accept();
            return true;
        }
    }
    if (event->type() == QEvent::Show)
        m_clock.start();
    if (event->type() == QEvent::Hide)
        m_clock.stop();
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::StyleChange)
        changeWaveform();
    return QWidget::event(event);
}
