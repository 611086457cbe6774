#include "command_line/CommandLine.h"

#include <cstdio>
#include <cstring>
#include <filesystem>

#include <unistd.h>

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>

#include <kestrixkit/foundation/KXException.h>

#include "command_line/Report.h"
#include "tags/TrackTags.h"

using namespace Qt::StringLiterals;

namespace {

// The bytes of an option's value: a folder's name need not be text.
std::string rawValue(int argc, char **argv, const std::string &option)
{
    std::string value;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == option && i + 1 < argc)
            value = argv[++i];
        else if (argument.compare(0, option.size() + 1, option + '=') == 0)
            value = argument.substr(option.size() + 1);
    }
    return value;
}

// The bytes of an argument that stands by itself.
std::string rawArgument(int argc, char **argv, const QString &argument)
{
    int at = argc - 1;
    while (at > 0 && QString::fromLocal8Bit(argv[at]) != argument)
        --at;
    return argv[at];
}

void checkMusicFolder(const std::string &music)
{
    const QString shown = displayPath(music);
    std::error_code error;
    const auto status = std::filesystem::status(music, error);
    if (!std::filesystem::exists(status))
        throw Ending { WrongInput, u"%1: no such folder"_s.arg(shown) };
    if (!std::filesystem::is_directory(status))
        throw Ending { WrongInput, u"%1: not a folder"_s.arg(shown) };
    if (access(music.c_str(), R_OK | X_OK) != 0)
        throw Ending { WrongInput, u"%1: cannot be read"_s.arg(shown) };
}

void checkWritableFile(const QString &file)
{
    const QFileInfo info(file);
    const QFileInfo folder(info.absolutePath());
    if (info.isDir())
        throw Ending { WrongInput, u"%1: is a folder"_s.arg(file) };
    if (!folder.isDir())
        throw Ending { WrongInput, u"%1: no such folder"_s.arg(folder.filePath()) };
    if (info.exists() ? !info.isWritable() : !folder.isWritable())
        throw Ending { WrongInput, u"%1: cannot be written"_s.arg(file) };
}

struct CommandLineOptions
{
    QCommandLineOption music { u"music"_s, u"The folder of music to import."_s, u"DIR"_s };
    QCommandLineOption store { u"store"_s,
        u"The library's file; without it, library.db in the application's support folder."_s, u"FILE"_s };
    QCommandLineOption report { u"report"_s,
        u"No window: import, print tracks, skipped files, genres and presets as JSON."_s };
    QCommandLineOption explain { u"explain"_s,
        u"No window: import, print why the track of a file (the argument that follows) is in a preset or not, as JSON. For instance: Tempo/124 to 128"_s,
        u"PRESET"_s };
    QCommandLineOption query { u"query"_s,
        u"No window: import, print the number of tracks that match as JSON. For instance: bpm >= 120 AND ANY genres.name == \"House\""_s,
        u"FORMAT"_s };
    QCommandLineOption whatIf { u"what-if"_s,
        u"No window: import, print how many tracks a preset would have with each value added, and with it excluded, as JSON. For instance: Tempo/124 to 128"_s,
        u"PRESET"_s };
    QCommandLineOption search { u"search"_s,
        u"No window: import, print what a search for the text finds, with counts by group, as JSON."_s, u"TEXT"_s };
    QCommandLineOption screenshot { u"screenshot"_s, u"Import, draw the window into a PNG file and exit."_s,
        u"FILE"_s };
    QCommandLineOption reportStart {
        u"report-start"_s,
        u"Print how many milliseconds it took until the window was drawn, and until all of its badges were right, as lines of JSON."_s
    };
    QCommandLineOption catalogue { u"catalogue"_s,
        u"A shop's catalogue in PostgreSQL, a place beside those of the library, which is opened. For instance: postgresql://shop.example/music"_s,
        u"URL"_s };
};

void parseOptions(QCommandLineParser &parser, const CommandLineOptions &options)
{
    parser.setApplicationDescription(u"Brings a folder of music into a library and shows it.\n"
                                     "Without a folder, a few synthesised loops are made and used."_s);
    parser.addOptions({ options.music, options.store, options.report, options.query, options.explain, options.whatIf,
        options.search, options.screenshot, options.reportStart, options.catalogue });
    parser.addPositionalArgument(u"FILE"_s, u"With --explain: a music file of the library."_s, u"[FILE]"_s);
    parser.addHelpOption();
    if (!parser.parse(QCoreApplication::arguments()))
        throw Ending { WrongInput, parser.errorText() };
    if (parser.isSet(u"help"_s)) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        throw Ending { Done, {} };
    }
    const QStringList files = parser.positionalArguments();
    if (parser.isSet(options.explain) && files.isEmpty())
        throw Ending { WrongInput, u"--explain: a preset and a file are needed"_s };
    if (files.size() > parser.isSet(options.explain))
        throw Ending { WrongInput, u"unexpected argument: %1"_s.arg(files.constLast()) };
    int answers = 0;
    for (const QCommandLineOption *each :
        { &options.report, &options.query, &options.explain, &options.whatIf, &options.search, &options.screenshot })
        answers += parser.isSet(*each);
    if (answers > 1)
        throw Ending { WrongInput,
            u"--report, --query, --explain, --what-if, --search and --screenshot exclude each other"_s };
}

std::string pathOfFile(const std::string &named)
{
    std::error_code error;
    const std::string file = std::filesystem::canonical(named, error).native();
    // One that is gone may still be known.
    return error ? std::filesystem::absolute(named).lexically_normal().native() : file;
}

KXPredicate readQuery(const QString &text)
{
    KXError error;
    KXPredicate query = KXPredicate::predicateWithText(text, &error);
    if (error || !query)
        throw Ending { WrongInput, u"--query: %1"_s.arg(error ? error.localizedDescription() : u"empty predicate"_s) };
    try {
        query = query.predicateWithSubstitutionVariables({});
    } catch (const KXException &exception) {
        throw Ending { WrongInput, u"--query: %1"_s.arg(exception.reason()) };
    }
    if (const QString unknown = Report::unknownName(query); !unknown.isEmpty())
        throw Ending { WrongInput, u"--query: tracks have no “%1”"_s.arg(unknown) };
    return query;
}

} // namespace

bool CommandLine::wasGiven(int argc, char **argv, const char *option)
{
    for (int i = 1; i < argc; ++i) {
        const size_t length = std::strlen(option);
        if (std::strncmp(argv[i], option, length) == 0 && (argv[i][length] == '\0' || argv[i][length] == '='))
            return true;
    }
    return false;
}

CommandLine CommandLine::read(int argc, char **argv)
{
    const CommandLineOptions options;
    QCommandLineParser parser;
    parseOptions(parser, options);
    CommandLine line;
    line.report = parser.isSet(options.report);
    line.reportsStart = parser.isSet(options.reportStart);
    line.whatIf = parser.isSet(options.whatIf);
    line.whatIfPreset = parser.value(options.whatIf);
    if (parser.isSet(options.search))
        line.search = parser.value(options.search);
    if (parser.isSet(options.explain)) {
        line.explainedPreset = parser.value(options.explain);
        line.explainedFile = pathOfFile(rawArgument(argc, argv, parser.positionalArguments().constFirst()));
    }
    if (parser.isSet(options.music)) {
        line.music = rawValue(argc, argv, "--music");
        checkMusicFolder(line.music);
    }
    if (parser.isSet(options.query)) {
        line.hasQuery = true;
        line.query = readQuery(parser.value(options.query));
    }
    if (parser.isSet(options.catalogue)) {
        KXError error;
        line.catalogue = KXCatalogueServers::fromText(parser.value(options.catalogue), &error);
        if (!line.catalogue)
            throw Ending { WrongInput, u"--catalogue: %1"_s.arg(error.localizedDescription()) };
    }
    if (parser.isSet(options.screenshot)) {
        line.screenshot = parser.value(options.screenshot);
        checkWritableFile(line.screenshot);
    }
    if (line.reportsStart && !line.needsWindow())
        throw Ending { WrongInput, u"--report-start: there is no window"_s };
    if (parser.isSet(options.store)) {
        line.store = QDir::cleanPath(QFileInfo(parser.value(options.store)).absoluteFilePath());
        checkWritableFile(line.store);
    }
    return line;
}
