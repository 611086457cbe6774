// kxtool COMMAND …: looks into stores, audio files and catalogues, and works on them. Results go to standard output,
// everything else to standard error.

#include <algorithm>
#include <cstdio>
#include <exception>

#include <QCoreApplication>
#include <QList>

#include "AudioCommands.h"
#include "CatalogueCommand.h"
#include "Command.h"
#include "StoreCommands.h"

using namespace Qt::StringLiterals;

namespace {

const QList<Command> &commands()
{
    static const QList<Command> all = storeCommands() << audioCommand() << catalogueCommand();
    return all;
}

void printHelp(FILE *stream)
{
    std::fprintf(stream, "usage: kxtool COMMAND …\n\n");
    for (const Command &command : commands())
        std::fprintf(stream, "  %s %s\n      %s\n", qPrintable(command.name), qPrintable(command.usage),
            qPrintable(command.purpose));
    std::fprintf(stream, "\nExit status: 0 done, 1 failed, 2 wrong arguments or input that cannot be used.\n");
}

} // namespace

int main(int argc, char **argv)
try {
    const QCoreApplication application(argc, argv);
    QStringList arguments = application.arguments().sliced(1);
    if (arguments.isEmpty()) {
        printHelp(stderr);
        return WrongInput;
    }
    const QString name = arguments.takeFirst();
    if (name == u"--help"_s) {
        printHelp(stdout);
        return Done;
    }
    const auto command
        = std::find_if(commands().begin(), commands().end(), [&](const Command &each) { return each.name == name; });
    if (command == commands().end())
        throw Ending { WrongInput, u"%1: no such command (kxtool --help lists them)"_s.arg(name) };
    return command->run(arguments);
} catch (const Ending &ending) {
    std::fprintf(stderr, "kxtool: %s\n", qPrintable(ending.line));
    return ending.status;
} catch (const std::exception &failure) {
    std::fprintf(stderr, "kxtool: %s\n", failure.what());
    return Failed;
}
