#pragma once

#include <functional>

#include <QLineEdit>
#include <QVBoxLayout>

#include <kestrixkit/navigation/KXLayeredNavigationController.h>

/// A controller to be pushed, which writes down what it is told and may do something then.
class Page : public KXViewController, public KXLayeredNavigationContent
{
    Q_OBJECT
public:
    explicit Page(const QString &title) { setTitle(title); }
    QStringList heard;
    std::function<void(const QString &)> onHearing;
    QPointer<QLineEdit> field;

    void viewWillAppear() override { hear("will appear"); }
    void viewDidAppear() override
    {
        KXViewController::viewDidAppear();
        hear("did appear");
    }
    void viewWillDisappear() override { hear("will disappear"); }
    void viewDidDisappear() override
    {
        KXViewController::viewDidDisappear();
        hear("did disappear");
    }
    void layeredViewWasPushed() override { hear("pushed"); }
    void layeredViewWasRevealed() override { hear("revealed"); }
    void childLayerViewControllerWasPushed() override { hear("child pushed"); }
    void layeredViewDidBeginPeeking() override { hear("begin peeking"); }
    void layeredViewDidFinishPeeking() override { hear("finish peeking"); }
    QString said() { return std::exchange(heard, {}).join(QStringLiteral(", ")); }

protected:
    void loadView() override
    {
        auto *const view = new QWidget;
        field = new QLineEdit;
        (new QVBoxLayout(view))->addWidget(field);
        setView(view);
    }

private:
    void hear(const char *what)
    {
        heard += QString::fromLatin1(what);
        if (const auto tell = onHearing)
            tell(heard.constLast());
    }
};

inline QString titlesOf(const KXNavigationStack &stack)
{
    QStringList titles;
    for (const KXViewController *controller : stack.viewControllers())
        titles += controller->title();
    return titles.join(u' ');
}
