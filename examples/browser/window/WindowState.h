#pragma once

class QSplitter;
class QWidget;
class SourceColumn;

/// Where the window was, and how it was divided, from one session to the next.
namespace WindowState {

/// Places the window as it was, where that is on a screen, and divides it. What makes no sense is left as it is.
void restore(QWidget &window, QSplitter &panes, SourceColumn &sources);
/// What is scrolled to in the source lists, once their rows are there.
void restoreSidebar(SourceColumn &sources);
void save(const QWidget &window, const QSplitter &panes, const SourceColumn &sources);

} // namespace WindowState
