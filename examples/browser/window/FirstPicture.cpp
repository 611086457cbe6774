#include "window/FirstPicture.h"

#include <QEvent>

#include <kestrixkit/foundation/KXDelayedCall.h>

namespace {

constexpr double longestWait = 1; // second

/// Watches a view, whose child it is, until it has called.
class PictureWatch : public QObject
{
public:
    PictureWatch(QWidget *view, std::function<void()> function)
        : QObject(view)
        , m_function(std::move(function))
    {
        view->installEventFilter(this);
        m_call.start(longestWait, [this] { call(); });
    }

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            m_call.start(0, [this] { call(); }); // when the others have been drawn as well
        return false;
    }

private:
    void call()
    {
        const auto function = std::move(m_function);
        deleteLater();
        parent()->removeEventFilter(this);
        function();
    }

    std::function<void()> m_function;
    KXDelayedCall m_call { this };
};

} // namespace

void FirstPicture::then(QWidget *view, std::function<void()> function) { new PictureWatch(view, std::move(function)); }
