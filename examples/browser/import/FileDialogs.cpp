#include "import/FileDialogs.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStyle>

#include "import/Scanner.h"
#include "window/Settings.h"

using namespace Qt::StringLiterals;

namespace {

QString dialogText(const char *text) { return QCoreApplication::translate("FileDialogs", text); }

/// The folder, or the nearest one above it; else where music is.
QString nearestFolder(const QString &folder)
{
    QString nearest = folder;
    while (!nearest.isEmpty() && !QDir(nearest).isRoot() && !QFileInfo(nearest).isDir())
        nearest = QFileInfo(nearest).absolutePath();
    if (!nearest.isEmpty() && !QDir(nearest).isRoot())
        return nearest;
    const QString music = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
    return QDir(music).exists() ? music : QDir::homePath();
}

QString musicFilter()
{
    QStringList patterns;
    for (const std::string_view extension : musicExtensions()) {
        const QString plain = QString::fromLatin1(extension.data(), qsizetype(extension.size()));
        patterns << u"*."_s + plain << u"*."_s + plain.toUpper(); // names differ by case on some disks
    }
    return dialogText(QT_TRANSLATE_NOOP("FileDialogs", "Music")) + u" ("_s + patterns.join(u' ') + u')';
}

}

void FileDialogs::ask(QWidget *over, const Question &question, const QObject *receiver, const Chosen &chosen)
{
    QWidget *const window = over ? over->window() : nullptr;
    auto *const dialog = new QFileDialog(window, question.title);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    const bool isFolder = question.kind == Kind::Folder;
    dialog->setFileMode(isFolder                ? QFileDialog::Directory
            : question.kind == Kind::MusicFiles ? QFileDialog::ExistingFiles
                                                : QFileDialog::ExistingFile);
    if (isFolder)
        dialog->setOption(QFileDialog::ShowDirsOnly);
    else
        dialog->setNameFilters(
            { musicFilter(), dialogText(QT_TRANSLATE_NOOP("FileDialogs", "All Files")) + u" (*)"_s });
    dialog->setLabelText(QFileDialog::Accept, question.button);
    const QString remembered = Settings::chosenFolder(question.purpose);
    dialog->setDirectory(nearestFolder(question.startIn.isEmpty() ? remembered : question.startIn));
    QObject::connect(dialog, &QFileDialog::filesSelected, receiver,
        [dialog, chosen, purpose = question.purpose](const QStringList &names) {
            Settings::setChosenFolder(purpose, dialog->directory().absolutePath());
            std::vector<std::string> paths;
            for (const QString &name : names)
                paths.push_back(QFile::encodeName(name).toStdString());
            chosen(paths);
        });
    dialog->open();
}
