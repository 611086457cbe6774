#pragma once

#include <kestrixkit/toolkit/KXViewController.h>

#include "library/Library.h"

class QFormLayout;
class QLabel;
class QVBoxLayout;

/// A section of the inspector: shows something of the tracks that are selected. It shows them while it is open alone.
class TrackSection : public KXViewController
{
    Q_OBJECT
public:
    explicit TrackSection(const QString &title, QObject *parent = nullptr);

    /// The current one first.
    [[nodiscard]] const QList<KXRef<Track>> &tracks() const { return m_tracks; }
    void setTracks(const QList<KXRef<Track>> &tracks);
    /// Their values, or what depends on them, may be others.
    void refresh();

    void viewDidAppear() override;

protected:
    void loadView() override;
    /// Fills the empty view.
    virtual void makeRows(QVBoxLayout &rows) = 0;
    virtual void showTracks() = 0;
    /// The only one; empty for none and for several.
    [[nodiscard]] KXRef<Track> single() const { return m_tracks.size() == 1 ? m_tracks.constFirst() : KXRef<Track>(); }

    /// A line of text that wraps, for values that can be copied.
    [[nodiscard]] static QLabel *makeText();
    /// Adds a row with a weaker name before the value.
    static void addRow(QFormLayout &form, const QString &name, QWidget *value);
    [[nodiscard]] static QFormLayout *makeForm();

private:
    QList<KXRef<Track>> m_tracks;
};
