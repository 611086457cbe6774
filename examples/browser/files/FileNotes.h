#pragma once

class QString;

/// What reading, writing and listening say about files, in the language of the window. They are kept and reported in
/// English, by programs of their own among others, and translated where they are shown. Any thread.
class FileNotes
{
public:
    /// Line by line; a line that is not known stays as it is.
    static QString shown(const QString &notes);
};
