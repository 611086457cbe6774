#include <kestrixkit/toolkit/KXErrorPresenter.h>

#include <QApplication>
#include <QMessageBox>

#include <kestrixkit/foundation/KXMainQueue.h>

KXErrorPresenter::KXErrorPresenter(QWidget *window)
    : m_handler(KXApplication::setPresentErrorHandler([window = QPointer<QWidget>(window)](const KXError &error) {
        const auto show = [window, text = error.localizedDescription()] {
            QMessageBox::critical(window, QApplication::applicationDisplayName(), text);
        };
        if (KXMainQueue::isMainThread())
            show();
        else
            KXMainQueue::async(show);
    }))
{
}
