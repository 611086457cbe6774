#include "files/FileNotes.h"

#include <vector>

#include <QCoreApplication>
#include <QRegularExpression>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace {

const char *const noteTexts[] = {
    QT_TRANSLATE_NOOP("FileNotes", "cannot be analysed: %1"),
    QT_TRANSLATE_NOOP("FileNotes", "cannot be read: %1"),
    QT_TRANSLATE_NOOP("FileNotes", "cannot be written: %1"),
    QT_TRANSLATE_NOOP("FileNotes", "cut off: the file ends before its music does"),
    QT_TRANSLATE_NOOP("FileNotes", "damaged or cut off: no audio can be found in it"),
    QT_TRANSLATE_NOOP("FileNotes", "empty file"),
    QT_TRANSLATE_NOOP("FileNotes", "it ended its analysis (%1)"),
    QT_TRANSLATE_NOOP("FileNotes", "it ended its reader (%1)"),
    QT_TRANSLATE_NOOP("FileNotes", "its analysis did not come to an end"),
    QT_TRANSLATE_NOOP("FileNotes", "its analysis failed"),
    QT_TRANSLATE_NOOP("FileNotes", "its analysis made no sense"),
    QT_TRANSLATE_NOOP("FileNotes", "its boxes are nested more than %1 deep"),
    QT_TRANSLATE_NOOP("FileNotes", "its reader gave no answer"),
    QT_TRANSLATE_NOOP("FileNotes", "its sound would not be the same"),
    QT_TRANSLATE_NOOP("FileNotes", "length unknown: the audio is damaged or cut off"),
    QT_TRANSLATE_NOOP("FileNotes", "neither a steady beat nor a key was heard"),
    QT_TRANSLATE_NOOP("FileNotes", "no key was heard"),
    QT_TRANSLATE_NOOP("FileNotes", "no steady beat was heard"),
    QT_TRANSLATE_NOOP("FileNotes", "no title, named after its file"),
    QT_TRANSLATE_NOOP("FileNotes", "not a regular file"),
    QT_TRANSLATE_NOOP("FileNotes", "not an audio file"),
    QT_TRANSLATE_NOOP("FileNotes", "the program that does it cannot be started"),
    QT_TRANSLATE_NOOP("FileNotes", "this kind of file does not hold all of it"),
    QT_TRANSLATE_NOOP("FileNotes", "was changed by somebody else meanwhile"),
    QT_TRANSLATE_NOOP("FileNotes", "%1 cut to %2 of %3 characters"),
    QT_TRANSLATE_NOOP("FileNotes", "%1 is no valid UTF-8, read as Latin-1"),
    QT_TRANSLATE_NOOP("FileNotes", "%1 left out"),
};

struct NotePattern
{
    const char *text;
    QRegularExpression expression;
};

const std::vector<NotePattern> &notePatterns()
{
    static const auto *const patterns = [] {
        auto *const made = new std::vector<NotePattern>;
        static const QRegularExpression place(u"\\\\%\\d"_s);
        for (const char *const text : noteTexts) {
            QString expression = QRegularExpression::escape(QString::fromUtf8(text));
            expression.replace(place, u"(.+)"_s);
            made->push_back({ text, QRegularExpression(QRegularExpression::anchoredPattern(expression)) });
        }
        return made;
    }();
    return *patterns;
}

/// What stands in it may be a note itself.
QString noteShown(const QString &line)
{
    for (const NotePattern &pattern : notePatterns()) {
        const QRegularExpressionMatch match = pattern.expression.match(line);
        if (!match.hasMatch())
            continue;
        QString text = QCoreApplication::translate("FileNotes", pattern.text);
        // All at once: a name of a tag may hold a "%1" itself.
        switch (match.lastCapturedIndex()) {
        case 0:
            return text;
        case 1:
            return text.arg(noteShown(match.captured(1)));
        default:
            return text.arg(match.captured(1), match.captured(2), match.captured(3));
        }
    }
    return line;
}

} // namespace

QString FileNotes::shown(const QString &notes)
{
    QStringList lines = notes.split(u'\n');
    for (QString &line : lines)
        line = noteShown(line);
    return lines.join(u'\n');
}
