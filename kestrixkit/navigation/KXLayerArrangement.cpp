#include <kestrixkit/navigation/KXLayerArrangement_p.h>

#include <algorithm>

#include <kestrixkit/navigation/KXLayeredNavigationController.h>

namespace {

constexpr int layerStrip = int(KXLayeredNavigationStackedViewWidth);
constexpr int layerPeek = int(KXLayeredNavigationPeekingViewWidth);

}

int KXLayerArrangement::distance(const KXLayeredView *layer, int otherwise)
{
    const KXLayeredNavigationItem *const item = layer ? layer->layeredNavigationItem() : nullptr;
    const int wanted = item ? qRound(item->nextItemDistance()) : 0;
    return wanted > 0 ? wanted : otherwise;
}

void KXLayerArrangement::move(KXLayeredView *layer, const QRect &frame, bool animated)
{
    layer->setTargetFrame(frame);
    if (animated)
        m_animation.add(layer, "frame", frame, QEasingCurve::OutQuad);
    else
        layer->setFrame(frame);
}

void KXLayerArrangement::stackUp(const Layers &layers, const QSize &room, bool animated)
{
    int x = 0;
    for (KXLayeredView *layer : layers) {
        move(layer, { x, 0, std::max(0, room.width() - x), room.height() }, animated);
        x += layerStrip;
    }
}

void KXLayerArrangement::layOut(const Layers &layers, const QSize &room, const KXLayeredView *peeking, bool animated)
{
    int x = 0;
    for (qsizetype i = 0; i < layers.size(); ++i) {
        KXLayeredView *const layer = layers.at(i);
        const bool keepsWidth = peeking && i + 1 < layers.size();
        const int width = keepsWidth ? layer->targetFrame().width() : std::max(0, room.width() - x);
        move(layer, { x, 0, width, room.height() }, animated);
        const bool isBelowTop = i + 2 == layers.size();
        if (layer == peeking)
            x += isBelowTop ? std::max(layerPeek, distance(layer, 0)) : layerPeek;
        else
            x += isBelowTop && !peeking ? distance(layer, layerStrip) : layerStrip;
    }
}

void KXLayerArrangement::closeUp(const Layers &layers, bool animated)
{
    for (KXLayeredView *layer : layers)
        move(layer, layer->targetFrame().translated(-layerStrip, 0), animated);
}

void KXLayerArrangement::adjustClipping(const Layers &layers, bool onlyGrow)
{
    for (qsizetype i = 0; i < layers.size(); ++i) {
        KXLayeredView *const layer = layers.at(i);
        const QRect &frame = layer->targetFrame();
        const int seen = i + 1 < layers.size() ? layers.at(i + 1)->targetFrame().x() - frame.x()
                                               : frame.width() - KXLayeredView::ShadowInset;
        layer->setVisibleWidth(std::max(onlyGrow ? layer->visibleWidth() : 0, seen));
        layer->updateRole();
    }
}
