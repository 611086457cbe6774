#pragma once

#include <kestrixkit/navigation/KXLayeredView.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>

/// Where the layers of a stack lie, and how much is seen of each. Layers are given from the bottom up. Main thread.
class KXLayerArrangement
{
public:
    using Layers = QList<KXLayeredView *>;

    /// From the layer to the next one, in points, as the layer's item asks for it; `otherwise` where it does not.
    [[nodiscard]] static int distance(const KXLayeredView *layer, int otherwise);

    /// At once, or when the animation is started.
    void move(KXLayeredView *layer, const QRect &frame, bool animated);
    /// A strip apart, as a push leaves them.
    void stackUp(const Layers &layers, const QSize &room, bool animated);
    /// With the distance that the item below the topmost asks for, or room for the one that peeks out.
    void layOut(const Layers &layers, const QSize &room, const KXLayeredView *peeking, bool animated);
    /// Closes the room that a layer has left below these.
    void closeUp(const Layers &layers, bool animated);
    /// A covered layer is seen as far as the next one. What is to be seen less of is cut when the layers have arrived.
    static void adjustClipping(const Layers &layers, bool onlyGrow);

    [[nodiscard]] KXAnimationGroup &animation() { return m_animation; }

private:
    KXAnimationGroup m_animation;
};
