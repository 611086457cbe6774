#include <kestrixkit/theme/controls/KXPlaceholderView.h>

#include <QLabel>
#include <QVBoxLayout>

KXPlaceholderView::KXPlaceholderView(QWidget *parent)
    : KXThemeableView(parent)
    , m_label(new QLabel)
{
    constexpr int margin = 16;
    m_label->setAlignment(Qt::AlignCenter);
    m_label->setWordWrap(true);
    m_label->setTextFormat(Qt::PlainText);
    auto *const layout = new QVBoxLayout(this);
    layout->setContentsMargins(margin, margin, margin, margin);
    layout->addWidget(m_label);
}

QString KXPlaceholderView::text() const { return m_label->text(); }

void KXPlaceholderView::setText(const QString &text) { m_label->setText(text); }

QColor KXPlaceholderView::textColour() const { return m_label->palette().color(QPalette::WindowText); }

void KXPlaceholderView::setTextColour(const QColor &colour)
{
    QPalette palette = m_label->palette();
    palette.setColor(QPalette::WindowText, colour);
    m_label->setPalette(palette);
}
