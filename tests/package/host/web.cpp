#include <QApplication>
#include <cstdio>
#include <kestrixkit/messages/views/KXMessageCenterViewController.h>
#include <kestrixkit/web/KXWeb.h>
#include <kestrixkit/web/KXWebEngine.h>
int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    KXWeb::registerViews();
    KXMessageCenterViewController strip;
    std::printf("strip %d, engine %s\n", strip.view()->height(), qPrintable(KXWebEngine::version()));
}
