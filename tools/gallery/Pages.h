#pragma once

#include <functional>

#include <QList>
#include <QString>
#include <QWidget>

namespace gallery {

/// A text as a page shows it: as it is, or longer and with accents, as another language might be.
using Texts = std::function<QString(const char *english)>;

/// A page of the gallery. A new one is a line in pages().
struct Page
{
    QString name;
    QWidget *(*make)(const Texts &text);
};

const QList<Page> &pages();

// Pages of messages and preferences.
QWidget *messagesPage(const Texts &text);
QWidget *preferencesPage(const Texts &text);
/// The presets library.
QWidget *presetsPage(const Texts &text);
/// The presets bar, the bar of filters and their editors; dates, whose fields are the toolkit's, by themselves.
QWidget *filtersPage(const Texts &text);
QWidget *filterDatesPage(const Texts &text);
/// Editors of filters with what-if counts.
QWidget *filterEditorsPage(const Texts &text);
/// The search's popover.
QWidget *searchPage(const Texts &text);
/// Breadcrumbs, layers and the inspector.
QWidget *navigationPage(const Texts &text);

// Pages of views outside of the controls, in files of their own.
QWidget *toolkitPage(const Texts &text);
QWidget *tablePage(const Texts &text);
QWidget *waveformPage(const Texts &text);

/// What a page marks a widget with that is also to be shown with the focus.
inline constexpr const char *focusProperty = "galleryFocus";

/// What a page marks a widget with on whose middle the mouse is to rest (1) or to be pressed (2).
inline constexpr const char *pointerProperty = "galleryPointer";

/// The page's picture: its widgets, those with the mark focused.
QImage picture(const Page &page, const Texts &text, Qt::LayoutDirection direction, qreal scale);

QString english(const char *text);
QString stretched(const char *text);

}
