#pragma once

#include <kestrixkit/theme/controls/KXSelectionBar.h>

class QUrl;

/// A strip above the table that says, while there is nothing but demo music, how one's own comes in. Once it was
/// closed, or a folder was chosen, it does not come back.
class DemoHint : public KXSelectionBar
{
    Q_OBJECT
public:
    explicit DemoHint(QWidget *parent = nullptr);

    /// Shows or hides itself, by one of the tracks that are shown.
    void follow(const QUrl &track);

Q_SIGNALS:
    void folderRequested();

private:
    const QString m_demoMusic; // below which files are demo music
};
