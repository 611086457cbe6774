// The page of messages' details, and the text browser that shows it.

#include <QDir>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/messages/KXMessageCenter.h>
#include <kestrixkit/messages/views/KXMessageCenterDetailsViewController.h>
#include <kestrixkit/toolkit/KXHTMLView.h>
#include <support/HttpServer.h>
#include <support/KXTestLog.h>
#include <support/KXTestPrint.h>

#include "HostileTexts.h"

using namespace Qt::StringLiterals;

class DetailsTest : public ::testing::Test
{
protected:
    DetailsTest() { KXBundle::mainBundle().setResourceFolders({ folder.path() }); }
    ~DetailsTest() override
    {
        KXBundle::mainBundle().setResourceFolders({});
        center.clearMessages(center.messages());
    }
    void write(const QString &name, const QByteArray &bytes)
    {
        QFile file(folder.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    static QString shownText(const KXMessageCenterDetailsViewController &details)
    {
        return qobject_cast<QTextBrowser *>(details.detailsWebView()->pageWidget())->toPlainText();
    }
    static bool showsRed(QWidget *widget)
    {
        const QImage drawn = widget->grab().toImage().convertToFormat(QImage::Format_RGB32);
        const auto *const pixels = reinterpret_cast<const QRgb *>(drawn.constBits());
        return std::find(pixels, pixels + drawn.width() * drawn.height(), qRgb(255, 0, 0))
            != pixels + drawn.width() * drawn.height();
    }
    QTemporaryDir folder;
    KXMessageCenter &center = KXMessageCenter::sharedInstance();
};

TEST_F(DetailsTest, markupIsSimpleOrText)
{
    const std::pair<QString, QString> cases[] {
        { u"<b>bold</b> and <BR/> 1 < 2 & &amp;"_s, u"<b>bold</b> and <BR/> 1 &lt; 2 & &amp;"_s },
        { u"<b onclick=\"x\">bold</b>"_s, u"&lt;b onclick=\"x\">bold</b>"_s },
        { u"std::vector<int>(<unknown>)\n</br>f<b>()\n</br>"_s, u"std::vector&lt;int>(&lt;unknown>)<br>f<b>()<br>"_s },
        { u"[d] (1): one\ntwo\n\n"_s, u"[d] (1): one<br>two"_s },
        { u"<ul>\n<li>x</li>\n</ul>"_s, u"<ul>\n<li>x</li>\n</ul>"_s },
        { u"<script>alert(1)</script><"_s, u"&lt;script>alert(1)&lt;/script>&lt;"_s },
        { u"<\nscript>"_s, u"&lt;<br>script>"_s },
        { {}, {} },
    };
    for (const auto &[html, plain] : cases)
        EXPECT_EQ(KXMessageCenterDetailsViewController::plainHTML(html), plain);
}

TEST_F(DetailsTest, hostileTextsAreTextsAndNothingIsFetched)
{
    const HttpServer server("red", HttpServer::Normal);
    QImage red(40, 40, QImage::Format_RGB32);
    red.fill(Qt::red);
    red.save(folder.filePath(u"red.png"_s));
    const QString image = QUrl::fromLocalFile(folder.filePath(u"red.png"_s)).toString();
    for (const QString &text : hostileTexts(server.url().toString(), image))
        center.postMessage(KXMessage::messageWithType(KXMessageTypeError, text, text));
    KXMessageCenterDetailsViewController details;
    details.popoverWillShow();
    details.view()->resize(460, 20'000);
    details.view()->show();
    EXPECT_FALSE(showsRed(details.view()));
    EXPECT_TRUE(shownText(details).contains(u"<script src="_s));

    // The view itself, given the same without anybody having looked at it, loads nothing either.
    KXHTMLView bare;
    bare.resize(400, 4000);
    QStringList loading = hostileTexts(server.url().toString(), image);
    loading.removeIf([](const QString &text) { return text.contains(u"#ff0000"_s); }); // styles are the view's to show
    bare.setHTML(loading.join(u"<p>"_s));
    bare.show();
    QTest::qWait(50);
    EXPECT_FALSE(showsRed(&bare));
    EXPECT_EQ(server.requests(), 0);
}

TEST_F(DetailsTest, veryManyAndVeryLongMessagesAreCut)
{
    center.postMessage(
        KXMessage::messageWithType(KXMessageTypeInfo, QString(50'000'000, u't'), QString(50'000'000, u'<')));
    for (int i = 0; i < 10'000; ++i)
        center.postMessage(KXMessage::messageWithError(KXError(u"D"_s, i, u"bad"_s)));
    KXMessageCenterDetailsViewController details;
    details.popoverWillShow();
    EXPECT_EQ(details.messages().size(), 10'001);
    EXPECT_LT(details.detailsWebView()->html().size(), 1'000'000);
    EXPECT_TRUE(shownText(details).contains(u" more messages are not shown"_s));
    center.clearMessages(center.messages().first(10'000));
    center.postMessage(
        KXMessage::messageWithType(KXMessageTypeInfo, u"deep"_s, u"<ul><li><blockquote><b>"_s.repeated(5'000)));
    details.popoverWillShow();
    EXPECT_LT(details.detailsWebView()->html().size(), 200'000);
    EXPECT_TRUE(shownText(details).contains(u"deep"_s));
    details.popoverDidClose();
    EXPECT_EQ(center.messageCount(), 0);
}

TEST_F(DetailsTest, templatesOfHosts)
{
    center.postMessage(KXMessage::messageWithType(KXMessageTypeInfo, u"a & b"_s, u"<b>i</b>"_s));
    struct Case
    {
        QByteArray text;
        QString html; ///< null: the framework's page
        qsizetype lines; ///< in the log
    };
    const Case cases[] { { "{{#messages}}{{title}}|{{{infoAsHTMLString}}}|{{info}}|{{type}}{{/messages}}",
                             u"a &amp; b|<b>i</b>|&lt;b&gt;i&lt;/b&gt;|1"_s, 0 },
        { "{{#messages}}{{title}}", {}, 1 }, { "", {}, 0 } };
    for (const Case &one : cases) {
        write(u"message_details_template.html"_s, one.text);
        const KXTestLog log;
        KXMessageCenterDetailsViewController details;
        details.popoverWillShow();
        if (one.html.isNull())
            EXPECT_TRUE(details.detailsWebView()->html().contains(u"a &amp; b"_s)) << one.text.data();
        else
            EXPECT_EQ(details.detailsWebView()->html(), one.html);
        EXPECT_EQ(log.lines().size(), one.lines) << log.lines().join(u'\n').toStdString();
    }
    // None at all, and one that breaks later on: an empty page.
    KXMessageCenterDetailsViewController details;
    details.setDetailsHTMLTemplate({});
    details.popoverWillShow();
    EXPECT_EQ(details.detailsWebView()->html(), QString());
    const KXTestLog log;
    details.setDetailsHTMLTemplate(u"{{/messages}}"_s);
    details.generateHTML();
    EXPECT_EQ(details.detailsWebView()->html(), QString());
    EXPECT_EQ(log.lines().size(), 1);
}
