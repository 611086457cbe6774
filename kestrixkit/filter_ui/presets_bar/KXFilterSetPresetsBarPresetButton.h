#pragma once

#include <memory>

#include <QImage>

#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>

class KXMenu;
class KXObserver;

/// The looks of a button of the presets bar: title, badge, and a folder's arrow. Main thread.
class KX_UI_EXPORT KXFilterSetPresetsBarButtonCell : public KXThemeableButtonCell
{
    Q_OBJECT
public:
    using KXThemeableButtonCell::KXThemeableButtonCell;

    static constexpr int longestTitle = 220; ///< in points; what is longer is cut

    /// The preset.
    [[nodiscard]] const KXRef<KXFilterSetPreset> &representedObject() const { return m_preset; }
    void setRepresentedObject(const KXRef<KXFilterSetPreset> &preset) { m_preset = preset; }
    /// Null for none.
    [[nodiscard]] const QImage &badgeImage() const { return m_badgeImage; }
    void setBadgeImage(const QImage &image) { m_badgeImage = image; }

    [[nodiscard]] QSize sizeHint(const QStyleOptionButton &option) const override;

protected:
    void paintInterior(QPainter &painter, const QStyleOptionButton &option, const QRect &rect) const override;

private:
    KXRef<KXFilterSetPreset> m_preset;
    QImage m_badgeImage;
};

/// The button of one preset in the presets bar, with the preset's title and a badge of its count. Follows both. Main
/// thread.
class KX_UI_EXPORT KXFilterSetPresetsBarPresetButton : public KXThemeableButton
{
    Q_OBJECT
public:
    explicit KXFilterSetPresetsBarPresetButton(const KXRef<KXFilterSetPreset> &preset, QWidget *parent = nullptr);
    ~KXFilterSetPresetsBarPresetButton() override;

    [[nodiscard]] const KXRef<KXFilterSetPreset> &filterSetPreset() const { return m_barCell->representedObject(); }
    /// Of the place whose count is shown; none for an empty one.
    [[nodiscard]] const QString &countsContextIdentifier() const { return m_identifier; }
    void setCountsContextIdentifier(const QString &identifier);
    [[nodiscard]] const QImage &badgeImage() const { return m_barCell->badgeImage(); }
    /// Under the identifier; 0 where nothing was counted.
    [[nodiscard]] qint64 count() const;
    /// The size that the button of a preset would have.
    [[nodiscard]] static QSize sizeForPreset(
        const KXFilterSetPreset &preset, const QString &identifier, const QFontMetrics &metrics);
    [[nodiscard]] static qint64 countOf(const KXFilterSetPreset &preset, const QString &identifier);

    // With and without theme by the cell, which has room for the badge.

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    /// Without a tool tip of its own it says the exact number, and how old it is.
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void titleDidChange();
    void updateAccessibleName();
    void countsDidChange();
    [[nodiscard]] QString withAge(const QString &count) const;

    KXFilterSetPresetsBarButtonCell *m_barCell;
    QString m_identifier;
    qint64 m_shownCount = 0;
    std::shared_ptr<KXObserver> m_titleObserver, m_countsObserver;
};

/// The button of a folder of presets: opens a menu of what is in it. Main thread.
class KX_UI_EXPORT KXFilterSetPresetsBarPresetFolderButton : public KXFilterSetPresetsBarPresetButton
{
    Q_OBJECT
public:
    explicit KXFilterSetPresetsBarPresetFolderButton(const KXRef<KXFilterSetPreset> &preset, QWidget *parent = nullptr);

    /// Filled when it opens.
    [[nodiscard]] KXMenu *presetsMenu() const { return m_menu; }

private:
    KXMenu *m_menu;
};
