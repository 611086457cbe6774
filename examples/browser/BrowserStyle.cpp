#include "BrowserStyle.h"

#include <QApplication>
#include <QFont>
#include <QPalette>
#include <QStyleFactory>

using namespace Qt::StringLiterals;

QColor BrowserStyle::keyColour(const MusicalKey &key)
{
    const float hue = float((key.number + 4) % 12) / 12.0F;
    const float blue = hue > 0.55F && hue < 0.80F ? 0.08F : 0.0F; // looks darker than it is
    return QColor::fromHslF(hue, key.minor ? 0.58F : 0.72F, (key.minor ? 0.64F : 0.74F) + blue);
}

void BrowserStyle::apply(QApplication &application)
{
    application.setStyle(QStyleFactory::create(u"Fusion"_s));

    QPalette palette;
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::Base, row);
    palette.setColor(QPalette::AlternateBase, alternateRow);
    palette.setColor(QPalette::Button, panel);
    palette.setColor(QPalette::ToolTipBase, panel);
    palette.setColor(QPalette::Highlight, selection);
    palette.setColor(QPalette::Link, accent);
    for (const QPalette::ColorRole role : { QPalette::WindowText, QPalette::Text, QPalette::ButtonText,
             QPalette::ToolTipText, QPalette::HighlightedText })
        palette.setColor(role, text);
    palette.setColor(QPalette::PlaceholderText, secondaryText);
    for (const QPalette::ColorRole role : { QPalette::WindowText, QPalette::Text, QPalette::ButtonText })
        palette.setColor(QPalette::Disabled, role, missingText);
    application.setPalette(palette);

    QFont font = application.font();
    font.setFamilies({ u"Inter"_s, u"Noto Sans"_s, u"Cantarell"_s, u"DejaVu Sans"_s, font.family() });
    application.setFont(font);

    application.setStyleSheet(uR"(
        QToolBar { background: %1; border: none; border-bottom: 1px solid %2; padding: 8px 14px; spacing: 10px; }
        QStatusBar { background: %1; border-top: 1px solid %2; color: %3; }
        QStatusBar::item { border: none; }
        QTableView { border: none; outline: none; }
        QHeaderView { background: %1; }
        QHeaderView::section { background: %1; color: %3; border: none; border-right: 1px solid %2;
                               border-bottom: 1px solid %2; padding: 6px 10px; font-weight: 600; }
        QHeaderView::section:hover { color: %4; }
        QTableCornerButton::section { background: %1; border: none; }
        QProgressBar { background: %2; border: none; border-radius: 3px; max-height: 6px; }
        QProgressBar::chunk { background: %5; border-radius: 3px; }
        QPushButton { background: %2; color: %4; border: 1px solid transparent; border-radius: 4px; padding: 3px 12px; }
        QPushButton:hover, QPushButton:focus { border-color: %5; }
        QScrollBar { background: %1; border: none; }
        QScrollBar:vertical { width: 12px; }
        QScrollBar:horizontal { height: 12px; }
        QScrollBar::handle { background: #3a3f4a; border-radius: 4px; margin: 2px; min-height: 28px; min-width: 28px; }
        QScrollBar::handle:hover { background: #525866; }
        QScrollBar::add-line, QScrollBar::sub-line { width: 0; height: 0; }
        QScrollBar::add-page, QScrollBar::sub-page { background: transparent; }
    )"_s.arg(panel.name(), line.name(), secondaryText.name(), text.name(), accent.name()));
}
