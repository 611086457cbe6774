// The snippets of the guide's pages are the lines of sources that are compiled and run. KX_WRITE_GUIDE=1 puts those
// lines into the pages.

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

QString guideText(const QString &path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return QString::fromUtf8(file.readAll());
}

/// The lines between the two marks of that name, moved to the left; empty where there are none.
QString guideSnippet(const QString &source, const QString &name)
{
    const QStringList parts = source.split(QRegularExpression(u"\\n *(//|#)! \\[%1\\]\\n"_s.arg(name)));
    if (parts.size() != 3)
        return {};
    QStringList lines = parts[1].split(u'\n');
    qsizetype indent = 1000;
    for (const QString &line : lines) {
        if (!line.trimmed().isEmpty())
            indent = std::min(indent, line.size() - qsizetype(QStringView(line).trimmed().size()));
    }
    for (QString &line : lines)
        line.remove(0, indent);
    return lines.join(u'\n');
}

} // namespace

TEST(GuidePages, showWhatIsCompiledAndRun)
{
    const QString root = QStringLiteral(KX_SOURCE_DIR) + u'/';
    static const QRegularExpression shown(
        u"<!-- (\\S+) (\\S+) -->\\n```(\\w+)\\n(.*?)\\n```"_s, QRegularExpression::DotMatchesEverythingOption);
    const QDir folder(root + u"docs/guide"_s);
    int snippets = 0;
    for (const QString &page : folder.entryList({ u"*.md"_s })) {
        QString text = guideText(folder.filePath(page));
        const QString before = text;
        EXPECT_EQ(text.count(u"\n```cpp"_s) + text.count(u"\n```cmake"_s), text.count(u"\n<!-- "_s))
            << page.toStdString() << " shows code that nobody compiles";
        qsizetype from = 0;
        for (auto match = shown.match(text); match.hasMatch(); match = shown.match(text, from)) {
            const QString wanted = guideSnippet(guideText(root + match.captured(1)), match.captured(2));
            EXPECT_FALSE(wanted.isEmpty()) << page.toStdString() << ": " << match.captured(2).toStdString();
            EXPECT_TRUE(match.captured(4) == wanted || qEnvironmentVariableIsSet("KX_WRITE_GUIDE"))
                << page.toStdString() << " shows otherwise:\n"
                << wanted.toStdString();
            text.replace(match.capturedStart(4), match.capturedLength(4), wanted);
            from = match.capturedStart(4) + wanted.size();
            ++snippets;
        }
        if (QFile file(folder.filePath(page)); qEnvironmentVariableIsSet("KX_WRITE_GUIDE") && text != before) {
            ASSERT_TRUE(file.open(QIODevice::WriteOnly));
            file.write(text.toUtf8());
        }
    }
    EXPECT_GE(folder.entryList({ u"*.md"_s }).size(), 15);
    EXPECT_GE(snippets, 25);
}
