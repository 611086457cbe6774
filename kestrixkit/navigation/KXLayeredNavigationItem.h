#pragma once

#include <QColor>
#include <QIcon>
#include <QLatin1StringView>

#include <kestrixkit/foundation/KXObject.h>

class KXViewController;

/// The dynamic property under which a view controller carries its item.
inline constexpr QLatin1StringView KXLayeredNavigationItemKey { "KXLayeredNavigationItemKey" };

/// What the layer of a view controller shows in its header, and how far the next layer keeps off. Belongs to the
/// controller. Main thread.
class KX_UI_EXPORT KXLayeredNavigationItem : public KXObject
{
    Q_OBJECT
    Q_PROPERTY(QString title READ title WRITE setTitle NOTIFY didChange)
    Q_PROPERTY(QIcon image READ image WRITE setImage NOTIFY didChange)
    Q_PROPERTY(QColor spacerColour READ spacerColour WRITE setSpacerColour NOTIFY didChange)
    Q_PROPERTY(double nextItemDistance READ nextItemDistance WRITE setNextItemDistance NOTIFY didChange)
    Q_PROPERTY(bool processing READ isProcessing WRITE setProcessing NOTIFY didChange)
public:
    /// The controller's item, made when it is first asked for; nullptr for nullptr.
    [[nodiscard]] static KXLayeredNavigationItem *layeredNavigationItem(KXViewController *controller);

    /// What was set or, where nothing was, the controller's own title.
    [[nodiscard]] QString title() const;
    void setTitle(const QString &title) { set(u"title", m_title, title); }
    /// One that is a mask is drawn in the title's colour.
    [[nodiscard]] const QIcon &image() const { return m_image; }
    void setImage(const QIcon &image);
    /// Of the line below the header; none while it is invalid.
    [[nodiscard]] const QColor &spacerColour() const { return m_spacerColour; }
    void setSpacerColour(const QColor &colour) { set(u"spacerColour", m_spacerColour, colour); }
    /// Points from this layer's side to that of the topmost one above it; 0, or less, for a strip.
    [[nodiscard]] double nextItemDistance() const { return m_nextItemDistance; }
    void setNextItemDistance(double points) { set(u"nextItemDistance", m_nextItemDistance, points); }
    /// Shows the busy indicator.
    [[nodiscard]] bool isProcessing() const { return m_processing; }
    void setProcessing(bool processing) { set(u"processing", m_processing, processing); }

Q_SIGNALS:
    void didChange();

private:
    explicit KXLayeredNavigationItem(KXViewController *controller);
    template <typename Value> void set(QStringView key, Value &member, const Value &value)
    {
        if (member == value)
            return;
        willChangeValueForKey(key);
        member = value;
        didChangeValueForKey(key);
        Q_EMIT didChange();
    }

    KXViewController *const m_controller; // the parent
    QString m_title;
    QIcon m_image;
    QColor m_spacerColour;
    double m_nextItemDistance = 0;
    bool m_processing = false;
};
