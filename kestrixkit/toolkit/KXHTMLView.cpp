#include <kestrixkit/toolkit/KXHTMLView.h>

#include <list>

#include <QImage>
#include <QTextBrowser>
#include <QVBoxLayout>

#include <kestrixkit/theme/controls/KXThemeableScroller.h>

using namespace Qt::StringLiterals;

namespace {

/// Qt's rich text, cut off from everything that it would look for in files.
class HTMLTextBrowser : public QTextBrowser
{
public:
    explicit HTMLTextBrowser(QWidget *parent)
        : QTextBrowser(parent)
    {
        setOpenLinks(false);
        setOpenExternalLinks(false);
        setFrameShape(QFrame::NoFrame);
        setUndoRedoEnabled(false);
        setTextInteractionFlags(Qt::TextBrowserInteraction);
        document()->setDocumentMargin(0); // pages have their own
        document()->setIndentWidth(20); // of lists
        setVerticalScrollBar(KXThemeableScroller::ofView(Qt::Vertical));
    }
    // An answer of nothing would have the document look for the file itself.
    QVariant loadResource(int type, const QUrl &) override
    {
        if (type != QTextDocument::ImageResource)
            return QByteArray("");
        QImage nothing(1, 1, QImage::Format_ARGB32_Premultiplied);
        nothing.fill(Qt::transparent);
        return nothing;
    }
};

class HTMLTextBackend : public KXHTMLBackend
{
public:
    explicit HTMLTextBackend(KXHTMLView *view)
        : m_browser(new HTMLTextBrowser(view))
    {
        QObject::connect(m_browser, &QTextBrowser::anchorClicked, view, &KXHTMLView::linkActivated);
    }
    ~HTMLTextBackend() override { delete m_browser.data(); }
    QWidget *widget() override { return m_browser; }
    void setHTML(const QString &html) override { m_browser->setHtml(html); }

private:
    QPointer<HTMLTextBrowser> m_browser;
};

std::list<KXHTMLView::BackendFactory> &htmlFactories()
{
    static auto *const factories = new std::list<KXHTMLView::BackendFactory>;
    return *factories;
}

}

KXHTMLBackend::~KXHTMLBackend() = default;

KXHTMLView::KXHTMLView(QWidget *parent)
    : QWidget(parent)
{
    auto *const layout = new QVBoxLayout(this);
    layout->setContentsMargins({});
}

KXHTMLView::~KXHTMLView() = default;

QWidget *KXHTMLView::pageWidget() const { return m_backend ? m_backend->widget() : nullptr; }

KXScopeToken KXHTMLView::setBackendFactory(BackendFactory factory)
{
    htmlFactories().push_back(std::move(factory));
    return KXScopeToken([at = std::prev(htmlFactories().end())] { htmlFactories().erase(at); });
}

void KXHTMLView::setHTML(const QString &html)
{
    m_html = html;
    if (!m_backend) {
        std::unique_ptr<KXHTMLBackend> made;
        if (!htmlFactories().empty())
            made = htmlFactories().back()(this);
        setBackend(made ? std::move(made) : std::make_unique<HTMLTextBackend>(this));
    }
    m_backend->setHTML(html);
}

void KXHTMLView::fallBack()
{
    setBackend(std::make_unique<HTMLTextBackend>(this));
    m_backend->setHTML(m_html);
}

void KXHTMLView::setBackend(std::unique_ptr<KXHTMLBackend> backend)
{
    m_backend = std::move(backend);
    QWidget *const widget = m_backend->widget();
    widget->setAccessibleName(accessibleName());
    layout()->addWidget(widget);
    setFocusProxy(widget);
    widget->show();
}
