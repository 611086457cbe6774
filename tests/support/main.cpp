// The entry of every test program: an application object, and folders of the user's that are temporary.

#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#if KX_TEST_GUI
#include <QApplication>
using Application = QApplication;
#else
#include <QCoreApplication>
using Application = QCoreApplication;
#endif

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    QTemporaryDir home;
    for (const char *name : { "HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "TMPDIR" })
        qputenv(name, home.path().toLocal8Bit());
    Application application(argc, argv);
    return RUN_ALL_TESTS();
}
