#pragma once

#include <functional>

#include <QEvent>
#include <QWidget>

/// What layers lie in: asks for them to be laid out again when it gets another size or direction. Main thread.
class KXLayerContainer : public QWidget
{
public:
    explicit KXLayerContainer(std::function<void()> layOut)
        : m_layOut(std::move(layOut))
    {
    }
    /// Who laid them out goes before this does.
    void forget() { m_layOut = {}; }

protected:
    void resizeEvent(QResizeEvent *event) override
    {
        QWidget::resizeEvent(event);
        if (m_layOut)
            m_layOut();
    }
    void changeEvent(QEvent *event) override
    {
        QWidget::changeEvent(event);
        if (event->type() == QEvent::LayoutDirectionChange && m_layOut)
            m_layOut();
    }

private:
    std::function<void()> m_layOut;
};
