#include <QTest>
#include <QWebEngineView>
#include <gtest/gtest.h>
TEST(A, b) {}
