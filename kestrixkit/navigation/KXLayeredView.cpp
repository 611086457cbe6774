#include <kestrixkit/navigation/KXLayeredView.h>

#include <QEvent>
#include <QPainter>
#include <QStyle>

#include <kestrixkit/navigation/KXLayeredNavigationController.h>
#include <kestrixkit/navigation/KXOverlayScrollers.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qreal layerRadius = 5;
constexpr qreal layerShadowBlur = 3;
constexpr float layerShadowAlpha = 0.4F;

QColor layerColour()
{
    const QColor themes = KXThemeManager::sharedManager().valueForKeyPath(u"windowColour"_s).value<QColor>();
    return themes.isValid() ? themes : QColor::fromRgbF(0.95F, 0.95F, 0.95F);
}

/// From dark at one side to nothing at the other.
void paintLayerShadow(QPainter &painter, const QRectF &rect, bool darkAtLeft)
{
    QLinearGradient shadow(rect.topLeft(), rect.topRight());
    const QColor dark = QColor::fromRgbF(0, 0, 0, layerShadowAlpha);
    shadow.setColorAt(darkAtLeft ? 0 : 1, dark);
    shadow.setColorAt(darkAtLeft ? 1 : 0, Qt::transparent);
    painter.fillRect(rect, shadow);
}

/// Lies over a covered layer's content.
class LayerCover : public QWidget
{
public:
    LayerCover(KXLayeredView *layer, std::function<void()> pressed)
        : QWidget(layer)
        , m_pressed(std::move(pressed))
    {
    }

protected:
    void mousePressEvent(QMouseEvent *) override { m_pressed(); }
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        const bool mirrored = layoutDirection() == Qt::RightToLeft;
        const qreal wide = layerShadowBlur + 1;
        paintLayerShadow(painter, QRectF(mirrored ? 0 : width() - wide, 0, wide, height()), mirrored);
    }

private:
    std::function<void()> m_pressed;
};

}

KXLayeredViewDelegate::~KXLayeredViewDelegate() = default;

KXLayeredView::KXLayeredView(KXLayeredNavigationItem *item, KXLayeredNavigationController *controller, QWidget *parent)
    : QWidget(parent)
    , m_item(item)
    , m_controller(controller)
    , m_clipping(new QWidget(this))
    , m_header(new KXLayeredHeaderView(item, this))
    , m_cover(new LayerCover(this, [this] {
        if (m_delegate)
            m_delegate->shouldRevealLayeredView(this);
    }))
{
    setAttribute(Qt::WA_Hover);
    m_cover->hide();
    connect(m_header, &KXLayeredHeaderView::pressedDown, this, [this] {
        if (!isFrontmost() && m_delegate)
            m_delegate->shouldPopToLayeredView(this);
    });
    connect(m_header, &KXLayeredHeaderView::closeRequested, this, &KXLayeredView::close);
    connect(m_header, &KXLayeredHeaderView::pointerDidMove, this, &KXLayeredView::updateCloseButton);
}

KXLayeredView::~KXLayeredView() { releaseContentView(); }

KXLayeredView *KXLayeredView::hostingLayeredView(QWidget *view)
{
    while (view && !qobject_cast<KXLayeredView *>(view))
        view = view->parentWidget();
    return qobject_cast<KXLayeredView *>(view);
}

KXLayeredView *KXLayeredView::layeredView(const KXViewController *controller)
{
    const auto *const stack = KXLayeredNavigationController::layeredNavigationController(controller);
    return stack ? stack->layeredViewForViewController(controller) : nullptr;
}

KXLayeredNavigationController *KXLayeredView::layeredNavigationController() const
{
    return qobject_cast<KXLayeredNavigationController *>(m_controller.data());
}

bool KXLayeredView::isFrontmost() const
{
    const auto *const stack = layeredNavigationController();
    const auto *const controller = stack ? stack->viewControllerForLayeredView(this) : nullptr;
    return controller && controller == stack->visibleViewController();
}

bool KXLayeredView::isRoot() const
{
    const auto *const stack = layeredNavigationController();
    const auto *const controller = stack ? stack->viewControllerForLayeredView(this) : nullptr;
    return controller && controller == stack->viewControllers().constFirst();
}

// Content

void KXLayeredView::setContentView(QWidget *view)
{
    if (view == m_content)
        return;
    releaseContentView();
    m_content = view;
    if (!view)
        return;
    view->setParent(m_clipping);
    view->show();
    layOut();
}

void KXLayeredView::releaseContentView()
{
    QWidget *const view = std::exchange(m_content, nullptr);
    if (!view || view->parentWidget() != m_clipping)
        return;
    KXEnabledOverlayScrollers(view);
    view->hide();
    view->setParent(nullptr);
}

void KXLayeredView::updateRole()
{
    const bool frontmost = isFrontmost();
    m_header->setActive(!frontmost && !m_popped);
    m_cover->setVisible(!frontmost && !m_popped);
    frontmost ? KXEnabledOverlayScrollers(m_content) : KXDisableOverlayScrollers(m_content);
    layOut();
    updateCloseButton();
    update();
}

// Places

QRect KXLayeredView::visual(const QRect &place) const { return QStyle::visualRect(layoutDirection(), rect(), place); }

void KXLayeredView::setFrame(const QRect &frame)
{
    m_frame = frame;
    placeFrame();
}

void KXLayeredView::placeFrame()
{
    const QWidget *const container = parentWidget();
    setGeometry(container ? QStyle::visualRect(container->layoutDirection(), container->rect(), m_frame) : m_frame);
}

void KXLayeredView::setVisibleWidth(int width)
{
    if (std::exchange(m_visibleWidth, width) != width)
        layOut();
}

void KXLayeredView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    layOut();
}

void KXLayeredView::layOut()
{
    const int head = KXLayeredHeaderView::Height, whole = std::max(0, width() - ShadowInset);
    const int below = std::max(0, height() - head);
    // Of a covered layer only what is seen: the focus ring is drawn around that.
    m_header->setGeometry(visual({ 0, 0, isFrontmost() ? whole : std::min(whole, m_visibleWidth), head }));
    m_clipping->setGeometry(visual({ 0, head, m_visibleWidth, below }));
    m_cover->setGeometry(visual({ 0, 0, m_visibleWidth, height() }));
    m_cover->stackUnder(m_header);
    if (m_content)
        m_content->setGeometry(QStyle::visualRect(layoutDirection(), m_clipping->rect(), { 0, 0, whole, below }));
}

void KXLayeredView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QRect plate = rect();
    if (isFrontmost()) {
        plate.setWidth(plate.width() - ShadowInset);
        plate = visual(plate);
        const bool mirrored = layoutDirection() == Qt::RightToLeft;
        const QRectF beside(
            mirrored ? plate.left() - layerShadowBlur : plate.right() + 1.0, 0, layerShadowBlur, height());
        paintLayerShadow(painter, beside, !mirrored);
    }
    KXControlPainter::plate(painter, plate, layerColour(), {}, layerRadius);
}

// The pointer

void KXLayeredView::setPeeking(bool peeking)
{
    m_peeking = peeking;
    updateCloseButton();
}

void KXLayeredView::updateCloseButton()
{
    m_header->setCloseButtonShown(m_peeking && !isRoot() && m_header->underMouse());
}

void KXLayeredView::pointerIsInside()
{
    auto *const stack = layeredNavigationController();
    if (m_peeking || m_popped || !stack || stack->isPushing() || isFrontmost() || !m_delegate)
        return;
    setPeeking(true);
    m_delegate->beginPeekingAtLayeredView(this);
}

bool KXLayeredView::event(QEvent *event)
{
    if (event->type() == QEvent::Enter || event->type() == QEvent::HoverMove) {
        pointerIsInside();
    } else if (event->type() == QEvent::Leave && m_peeking && !isFrontmost()) {
        setPeeking(false);
        if (m_delegate)
            m_delegate->endPeekingAtLayeredView(this);
    }
    return QWidget::event(event);
}

void KXLayeredView::close()
{
    if (m_delegate)
        m_delegate->shouldDropLayeredView(this);
}
