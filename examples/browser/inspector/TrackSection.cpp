#include "inspector/TrackSection.h"

#include <QFormLayout>
#include <QLabel>

#include "window/BrowserStyle.h"

TrackSection::TrackSection(const QString &title, QObject *parent)
    : KXViewController(parent)
{
    setTitle(title);
}

void TrackSection::setTracks(const QList<KXRef<Track>> &tracks)
{
    m_tracks = tracks;
    refresh();
}

void TrackSection::refresh()
{
    if (hasAppeared())
        showTracks();
}

void TrackSection::viewDidAppear()
{
    KXViewController::viewDidAppear();
    showTracks();
}

void TrackSection::loadView()
{
    auto *const view = new QWidget;
    auto *const rows = new QVBoxLayout(view);
    rows->setContentsMargins(BrowserStyle::margin, 4, BrowserStyle::margin, BrowserStyle::margin);
    rows->setSpacing(4);
    makeRows(*rows);
    setView(view);
}

QLabel *TrackSection::makeText()
{
    auto *const text = new QLabel;
    text->setTextFormat(Qt::PlainText);
    text->setWordWrap(true);
    text->setMinimumWidth(40);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return text;
}

QFormLayout *TrackSection::makeForm()
{
    auto *const form = new QFormLayout;
    form->setContentsMargins(0, 0, 0, 0);
    form->setHorizontalSpacing(8);
    form->setVerticalSpacing(3);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    return form;
}

void TrackSection::addRow(QFormLayout &form, const QString &name, QWidget *value)
{
    auto *const label = new QLabel(name);
    label->setForegroundRole(QPalette::PlaceholderText);
    value->setAccessibleName(name);
    form.addRow(label, value);
}
