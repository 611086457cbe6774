#pragma once

#include <optional>
#include <string>

#include <QString>

#include <kestrixkit/catalogue/KXCatalogueServers.h>
#include <kestrixkit/predicate/KXPredicate.h>

/// What the browser was started with.
struct CommandLine
{
    /// Once the application object is there. Throws an Ending where it makes no sense, and where help was asked for.
    static CommandLine read(int argc, char **argv);
    /// Before there is an application object.
    static bool wasGiven(int argc, char **argv, const char *option);

    std::string music; ///< empty: none was named
    QString store;
    QString screenshot;
    std::optional<KXCatalogueServers> catalogue; ///< of the shop
    KXPredicate query;
    bool hasQuery = false;
    bool report = false;
    bool reportsStart = false;
    std::optional<QString> search;
    QString explainedPreset;
    std::string explainedFile; ///< empty: nothing is to be explained
    QString whatIfPreset;
    bool whatIf = false;
    [[nodiscard]] bool needsWindow() const
    {
        return !report && !hasQuery && !whatIf && !search && explainedFile.empty();
    }
};

enum ExitStatus { Done = 0, Failed = 1, WrongInput = 2 };

/// Ends the program with one line on standard error.
struct Ending
{
    ExitStatus status;
    QString line;
};
