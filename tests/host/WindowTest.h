#pragma once

#include <QLineEdit>
#include <QTest>

#include <window/BrowserWindow.h>

#include "LibraryTest.h"

/// A library in the browser's window.
class WindowTest : public LibraryTest
{
protected:
    void TearDown() override
    {
        window.reset();
        LibraryTest::TearDown();
    }
    void openWindow(const QSize &size = {})
    {
        window.reset();
        window = std::make_unique<BrowserWindow>(coordinator);
        if (!size.isEmpty())
            window->resize(size);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        window->activateWindow();
    }
    /// What is scheduled for the next turn may schedule something itself.
    static void turns()
    {
        for (int i = 0; i < 4; ++i)
            QTest::qWait(0);
    }
    /// Where the keyboard is, unless a widget is named.
    void press(const QKeySequence &keys, QWidget *in = nullptr) const
    {
        QWidget *const focus = QApplication::focusWidget();
        QTest::keySequence(in ? in : focus ? focus : window.get(), keys);
        turns();
    }
    /// Into the editor of a title that is open.
    static void type(const QString &text)
    {
        auto *const editor = qobject_cast<QLineEdit *>(QApplication::focusWidget());
        ASSERT_TRUE(editor) << "nothing is being renamed";
        QTest::keyClicks(editor, text);
        QTest::keyClick(editor, Qt::Key_Return);
        turns();
    }

    std::unique_ptr<BrowserWindow> window;
};
