#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tags/TagChanges.h"

/// Reads tags in processes of their own: a file that ends its reader, or keeps it busy for ever, costs itself alone.
/// Without the program that does it they are read in this process. Any thread, several at a time; there are as many
/// processes as files were read at a time.
class TagReaders
{
public:
    /// `program` is the file name of the reader.
    explicit TagReaders(std::string program = besideThisProgram());
    ~TagReaders();
    Q_DISABLE_COPY_MOVE(TagReaders)

    TagReading read(const std::string &path);
    /// As changeTags(): a file that ends whoever writes into it costs itself alone.
    TagReading change(const std::string &path, const TagChanges &changes);

    /// What the reader does: answers each request that comes on the socket, until it is closed.
    static void serve(int socket);

private:
    class Process;
    static std::string besideThisProgram();
    TagReading ask(const std::string &path, const TagChanges *changes);

    const std::string m_program;
    std::mutex m_mutex;
    std::vector<std::unique_ptr<Process>> m_idle;
    bool m_isThere = true; // until it could not be started
};
