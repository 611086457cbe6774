#include <kestrixkit/toolkit/KXErrorPresenter.h>

#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/toolkit/KXAlert.h>

KXErrorPresenter::KXErrorPresenter(QWidget *window)
    : m_handler(KXApplication::setPresentErrorHandler([window = QPointer<QWidget>(window)](const KXError &error) {
        const auto show = [window, text = error.localizedDescription()] {
            static_cast<void>(KXAlert(text, KXAlertStyle::Critical).run(window));
        };
        if (KXMainQueue::isMainThread())
            show();
        else
            KXMainQueue::async(show);
    }))
{
}
