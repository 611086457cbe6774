#pragma once

#include <kestrixkit/foundation/KXWeakDelegate.h>
#include <kestrixkit/navigation/KXLayeredHeaderView.h>

class KXLayeredNavigationController;
class KXLayeredView;
class KXViewController;

/// What a layer asks for.
class KX_UI_EXPORT KXLayeredViewDelegate
{
public:
    virtual ~KXLayeredViewDelegate();
    /// The pointer rests on a covered layer, or has left it.
    virtual void beginPeekingAtLayeredView(KXLayeredView *layer) = 0;
    virtual void endPeekingAtLayeredView(KXLayeredView *layer) = 0;
    /// The user wants to go back to the layer, or to see all of it.
    virtual void shouldPopToLayeredView(KXLayeredView *layer) = 0;
    virtual void shouldRevealLayeredView(KXLayeredView *layer) = 0;
    /// The user closes the layer.
    virtual void shouldDropLayeredView(KXLayeredView *layer) = 0;
};

/// A sheet around the view of a pushed controller: a header above, the view below it, cut off where the layers above
/// cover it. Places are in reading direction: in right-to-left layouts they are mirrored. Main thread.
class KX_UI_EXPORT KXLayeredView : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(QRect frame READ frame WRITE setFrame)
public:
    static constexpr int ShadowInset = 5; ///< points that are kept for the shadow

    KXLayeredView(KXLayeredNavigationItem *item, KXLayeredNavigationController *controller, QWidget *parent);
    /// The content is the controller's, and not part of it any more.
    ~KXLayeredView() override;

    /// The layer that a view lies in, or is; nullptr for none.
    [[nodiscard]] static KXLayeredView *hostingLayeredView(QWidget *view);
    /// Of a controller that is pushed; nullptr for any other.
    [[nodiscard]] static KXLayeredView *layeredView(const KXViewController *controller);

    [[nodiscard]] KXLayeredNavigationItem *layeredNavigationItem() const { return m_item; }
    [[nodiscard]] KXLayeredNavigationController *layeredNavigationController() const;
    [[nodiscard]] KXLayeredViewDelegate *delegate() const { return m_delegate.get(); }
    void setDelegate(KXLayeredViewDelegate *delegate) { m_delegate.set(delegate); }

    [[nodiscard]] QWidget *contentView() const { return m_content; }
    void setContentView(QWidget *view);
    /// Takes the content out, hidden; harmless where it has gone elsewhere.
    void releaseContentView();
    [[nodiscard]] QWidget *clippingView() const { return m_clipping; }
    [[nodiscard]] KXLayeredHeaderView *layeredHeaderView() const { return m_header; }

    /// Where it lies, in reading direction.
    [[nodiscard]] const QRect &frame() const { return m_frame; }
    void setFrame(const QRect &frame);
    /// Again, where the container has another size or direction.
    void placeFrame();
    /// Where the stack wants it to be; frame() gets there by an animation, or at once.
    [[nodiscard]] const QRect &targetFrame() const { return m_targetFrame; }
    void setTargetFrame(const QRect &frame) { m_targetFrame = frame; }
    /// How much of it is seen, in points.
    void setVisibleWidth(int width);
    [[nodiscard]] int visibleWidth() const { return m_visibleWidth; }

    /// The pointer rests on it, or it is shown wider than its strip.
    [[nodiscard]] bool isPeeking() const { return m_peeking; }
    void setPeeking(bool peeking);
    /// It is being removed.
    [[nodiscard]] bool isPopped() const { return m_popped; }
    void setPopped(bool popped) { m_popped = popped; }
    [[nodiscard]] bool isFrontmost() const;
    [[nodiscard]] bool isRoot() const;
    /// Header and content as its place in the stack asks for.
    void updateRole();

    void close();

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void layOut();
    void pointerIsInside();
    void updateCloseButton();
    [[nodiscard]] QRect visual(const QRect &place) const;

    const QPointer<KXLayeredNavigationItem> m_item;
    const QPointer<QObject> m_controller;
    KXWeakDelegate<KXLayeredViewDelegate> m_delegate;
    QPointer<QWidget> m_content;
    QWidget *m_clipping;
    KXLayeredHeaderView *m_header;
    QWidget *m_cover; // of what is covered: takes the mouse, and has the shadow of the layer above
    QRect m_frame;
    QRect m_targetFrame;
    int m_visibleWidth = 0;
    bool m_peeking = false;
    bool m_popped = false;
};
