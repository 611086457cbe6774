// A storm of errors in one turn, with the strip on screen: what one of many costs against one of a few.

#include <ctime>

#include <QApplication>
#include <QStyleFactory>
#include <QWidget>

#include <kestrixkit/messages/KXMessageCenter.h>
#include <kestrixkit/messages/views/KXMessageCenterViewController.h>
#include <kestrixkit/theme/KXDarkTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>

#include "BenchProgram.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int allPosts = 10'000; // of each side, in storms of different sizes

class StripHost : public KXMessageCenterViewControllerDelegate
{
public:
    void messageCenterViewShouldBeShown(KXMessageCenterViewController *controller) override
    {
        controller->view()->show();
    }
    void messageCenterViewShouldBeHidden(KXMessageCenterViewController *controller) override
    {
        controller->view()->hide();
    }
};

/// CPU time: posts, and the repaint of the turn after each storm.
double microsecondsPerPost(int stormSize)
{
    KXMessageCenter &center = KXMessageCenter::sharedInstance();
    StripHost host;
    KXMessageCenterViewController controller;
    controller.setDelegate(&host);
    controller.view()->resize(1000, 30);
    controller.view()->show();
    QList<KXMessage::Ref> messages;
    for (int i = 0; i < allPosts; ++i)
        messages.append(
            KXMessage::messageWithError(KXError(u"com.example"_s, i, u"The file %1 could not be read"_s.arg(i))));
    QCoreApplication::processEvents();
    std::clock_t spent = 0;
    for (int first = 0; first < allPosts; first += stormSize) {
        const std::clock_t start = std::clock();
        for (int i = first; i < first + stormSize; ++i)
            center.postMessage(messages[i]);
        QCoreApplication::processEvents();
        spent += std::clock() - start;
        center.clearMessages(center.messages());
    }
    return double(spent) / CLOCKS_PER_SEC * 1e6 / allPosts;
}

}

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QApplication::setStyle(QStyleFactory::create(u"Fusion"_s));
    KXThemeManager::sharedManager().setTheme(std::make_shared<KXDarkTheme>());
    BenchProgram::add("messages.storm/ours",
        [](benchmark::State &state) { BenchProgram::report(state, microsecondsPerPost(10'000)); });
    BenchProgram::add("messages.storm/peer",
        [](benchmark::State &state) { BenchProgram::report(state, microsecondsPerPost(1'000)); });
    return BenchProgram::run(argc, argv, [] {});
}
