/// kxtool audio info|waveform|render: what an audio file is, what it looks like and what it sounds like.
#pragma once

#include <QUrl>

#include "Command.h"

class QCommandLineParser;

[[nodiscard]] Command audioCommand();

/// audio render FILE OUT.wav: plays the file through a player, into a file.
ExitStatus renderAudio(const QStringList &arguments);

/// Parses a command's arguments and answers those without a dash; as many as asked for, else it throws an Ending.
QStringList positionalArguments(QCommandLineParser &parser, const QStringList &arguments, qsizetype count);
/// The address of a file that was named on the command line, or of a stream.
[[nodiscard]] QUrl audioUrl(const QString &argument);
/// The number of an option, if it was given. Throws an Ending when it is none or smaller than `least`.
[[nodiscard]] double numberOption(
    const QCommandLineParser &parser, const QString &name, double otherwise, double least = 0);
