#include "window/Welcome.h"

#include <QBoxLayout>
#include <QLabel>

#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>

#include "window/BrowserStyle.h"

using namespace Qt::StringLiterals;

Welcome::Welcome(QWidget *parent)
    : QWidget(parent)
    , m_title(new QLabel)
    , m_text(new QLabel)
    , m_buttons(new QWidget)
{
    auto *const around = new QVBoxLayout(parent);
    around->setContentsMargins({});
    around->addWidget(this);
    QFont font = m_title->font();
    font.setPointSizeF(font.pointSizeF() * 1.6);
    font.setBold(true);
    m_title->setFont(font);
    for (QLabel *label : { m_title, m_text }) {
        label->setAlignment(Qt::AlignCenter);
        label->setTextFormat(Qt::PlainText);
        label->setWordWrap(true);
    }
    auto *const row = new QHBoxLayout(m_buttons);
    row->setContentsMargins({});
    row->setSpacing(BrowserStyle::margin);
    row->addStretch();
    const auto add = [&](const QString &title, QLatin1StringView style, void (Welcome::*requested)()) {
        auto *const button = new KXThemeableButton(title);
        button->setThemeStyleName(style);
        connect(button, &QPushButton::clicked, this, requested);
        row->addWidget(button);
    };
    add(tr("Add Music Folder…"), KXDefaultButtonStyles, &Welcome::folderRequested);
    add(tr("Add Files…"), KXButtonStyles, &Welcome::filesRequested);
    add(tr("Try Demo Music"), KXButtonStyles, &Welcome::demoRequested);
    row->addStretch();

    auto *const column = new QVBoxLayout(this);
    column->setSpacing(2 * BrowserStyle::margin);
    column->addStretch();
    for (QWidget *widget : { static_cast<QWidget *>(m_title), static_cast<QWidget *>(m_text), m_buttons })
        column->addWidget(widget);
    column->addStretch();
    hide();
}

void Welcome::showReason(const QString &text) { showTexts({}, text, false); }

void Welcome::showGreeting()
{
    showTexts(tr("Welcome"),
        tr("No music in the library yet. Add a folder, or drop folders and files here. Your files stay where they "
           "are."),
        true);
}

void Welcome::showTexts(const QString &title, const QString &text, bool hasButtons)
{
    m_title->setText(title);
    m_title->setVisible(!title.isEmpty());
    m_text->setText(text);
    m_buttons->setVisible(hasButtons);
    show();
}
