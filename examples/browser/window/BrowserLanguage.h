#pragma once

/// The language of the window. Questions of the command line are answered in English, whatever the locale: programs
/// read them. Main thread.
class BrowserLanguage
{
public:
    /// In the language of the locale, where there is a translation. Before the first view is made.
    static void install();
};
