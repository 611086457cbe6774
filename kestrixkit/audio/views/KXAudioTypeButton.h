#pragma once

#include <QPushButton>

#include <kestrixkit/foundation/KXNotificationCenter.h>

class QStyleOptionButton;

/// Paints an audio type as a coloured badge, in the theme's colours of types. Any value but 0…6 is a badge without
/// colour. Main thread.
class KX_UI_EXPORT KXAudioTypeButtonCell
{
public:
    /// What the values stand for; they are stored in files of hosts.
    enum AudioType { Mix = 0, Track = 1, Stem = 2, Part = 3, Loop = 4, OneShot = 5, SFX = 6 };

    [[nodiscard]] int audioTypeValue() const { return m_audioTypeValue; }
    void setAudioTypeValue(int value) { m_audioTypeValue = value; }

    /// The type's name in the user's language; empty for a value that is none.
    [[nodiscard]] QString title() const;
    /// Fills with the type's colour; invalid without type or theme.
    [[nodiscard]] QColor typeColour() const;

    /// Rectangle, state and palette are the option's; its text is not.
    void paint(QPainter &painter, const QStyleOptionButton &option) const;

private:
    int m_audioTypeValue = -1;
};

/// A small button that shows the type of a track, stem or loop. Main thread.
class KX_UI_EXPORT KXAudioTypeButton : public QPushButton
{
    Q_OBJECT
    Q_PROPERTY(int audioTypeValue READ audioTypeValue WRITE setAudioTypeValue)
public:
    explicit KXAudioTypeButton(QWidget *parent = nullptr);

    [[nodiscard]] int audioTypeValue() const { return m_cell.audioTypeValue(); }
    void setAudioTypeValue(int value);
    [[nodiscard]] const KXAudioTypeButtonCell &cell() const { return m_cell; }

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    KXAudioTypeButtonCell m_cell;
    KXNotificationToken m_theme;
};
