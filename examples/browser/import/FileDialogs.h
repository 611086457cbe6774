#pragma once

#include <functional>
#include <string>
#include <vector>

#include <QString>

class QObject;
class QWidget;

/// Asks for music files and folders, everywhere alike: over the window, by the desktop's own dialog where it has one,
/// where somebody chose something the last time for the same purpose.
namespace FileDialogs {

enum class Kind {
    Folder,
    MusicFile, ///< that exists; other files can be shown
    MusicFiles,
};

struct Question
{
    QString title; ///< what is done with what is chosen: "Add Music Folder"
    QString button; ///< the same in a word: "Add"
    Kind kind = Kind::Folder;
    QString purpose = {}; ///< what the folder is remembered for; never shown
    QString startIn = {}; ///< a folder to begin in, or in the nearest one above it; empty: where it was the last time
};

/// Paths in the bytes of the file system.
using Chosen = std::function<void(const std::vector<std::string> &paths)>;

/// Shows the dialog and comes back at once. What is chosen is told while the receiver lives.
void ask(QWidget *over, const Question &question, const QObject *receiver, const Chosen &chosen);

} // namespace FileDialogs
