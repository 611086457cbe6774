#pragma once

#include <QLineEdit>

#include <kestrixkit/filter_ui/editors/KXDistributionFilterViewController.h>
#include <kestrixkit/filter_ui/editors/KXFacetFilterViewController.h>

#include "library/Library.h"

class KXThemeableButton;

/// Edits a choice among the library's values, each with how many tracks the list would have with it; of keys also those
/// that fit the track at hand, by one click.
class TrackFacetEditor : public KXFacetFilterViewController
{
    Q_OBJECT
public:
    /// Of more values than that those are offered that bring most, and of those that are searched for.
    static constexpr qsizetype mostOffers = 3000;

    /// The track is the one that plays, or is selected. Counts are borrowed; nullptr for none.
    TrackFacetEditor(KXRef<KXFacetFilter> filter, const KXRef<Track> &trackAtHand, KXFilterSetWhatIfCounts *counts);

    /// nullptr where no key is asked for, or the track at hand has none.
    [[nodiscard]] KXThemeableButton *fittingButton() const;

protected:
    void viewDidLoad() override;

private:
    void putMostFirst(KXFilterSetWhatIfCounts &counts);
    void offer(const QString &search);
    void takeFittingKeys();

    QList<Offer> m_all;
    std::optional<int> m_keyOrder; // of the track at hand
    QPointer<KXThemeableButton> m_fitting;
};

/// Edits a range of numbers over how they are spread; of tempos also those around the track at hand, by one click.
class TrackRangeEditor : public KXDistributionFilterViewController
{
    Q_OBJECT
public:
    TrackRangeEditor(KXRef<KXRangeFilter> filter, const KXRef<Track> &trackAtHand, KXFilterSetWhatIfCounts *counts);

    /// nullptr where no tempo is asked for, or the track at hand has none.
    [[nodiscard]] KXThemeableButton *aroundButton() const;

protected:
    void viewDidLoad() override;

private:
    void takeTempoAround();

    std::optional<double> m_bpm; // of the track at hand
    QPointer<KXThemeableButton> m_around;
};

/// Edits a text filter: tracks whose text holds what is typed, whatever its case.
class TextEditor : public KXFilterEditorViewController
{
    Q_OBJECT
public:
    explicit TextEditor(KXRef<KXFacetFilter> filter);

    [[nodiscard]] QLineEdit *field() const { return m_field; }
    void commitTyping() override;
    void revert() override;
    void popoverWillShow() override;

protected:
    void loadView() override;
    [[nodiscard]] QStringList editedKeys() const override { return { QStringLiteral("values") }; }
    void filterDidChange() override;
    [[nodiscard]] QWidget *firstResponder() const override;

private:
    void setText(const QString &text);
    [[nodiscard]] QString text() const;

    const KXRef<KXFacetFilter> m_facet;
    QString m_before;
    QPointer<QLineEdit> m_field;
};
