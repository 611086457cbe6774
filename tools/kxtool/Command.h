#pragma once

#include <QStringList>

/// How the tool ends.
enum ExitStatus {
    Done = 0,
    Failed = 1, ///< the work could not be done; standard error says why
    WrongInput = 2, ///< wrong arguments, or input that cannot be used
};

/// Ends the tool with one line on standard error.
struct Ending
{
    ExitStatus status;
    QString line;
};

/// One of the tool's commands: its name, its arguments as the help prints them, what it is for, and what runs it.
/// `run` gets the arguments behind the name, prints its result on standard output and may throw an Ending.
struct Command
{
    QString name;
    QString usage;
    QString purpose;
    ExitStatus (*run)(const QStringList &arguments);
};
