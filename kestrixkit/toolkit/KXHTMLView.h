#pragma once

#include <functional>
#include <memory>

#include <QWidget>

#include <kestrixkit/foundation/KXApplication.h>

class KXHTMLView;

/// What a KXHTMLView shows its page with.
class KX_UI_EXPORT KXHTMLBackend
{
public:
    virtual ~KXHTMLBackend();
    /// A child of the view; it ends with the backend.
    [[nodiscard]] virtual QWidget *widget() = 0;
    virtual void setHTML(const QString &html) = 0;
};

/// Shows a page that is given to it as text. It runs no script and loads nothing, neither from the network nor from
/// files, and following a link only tells of it.
///
/// The page is drawn by what a host registers (KXWeb::registerViews()) or, where nobody has or that cannot be started,
/// by a text browser with a part of HTML. Either is made when the first page is set, not before. Main thread.
class KX_UI_EXPORT KXHTMLView : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(QString html READ html WRITE setHTML)
public:
    /// Answers nullptr, having logged why, where it cannot show pages.
    using BackendFactory = std::function<std::unique_ptr<KXHTMLBackend>(KXHTMLView *view)>;

    explicit KXHTMLView(QWidget *parent = nullptr);
    ~KXHTMLView() override;

    [[nodiscard]] const QString &html() const { return m_html; }
    void setHTML(const QString &html);

    /// nullptr until a page was set.
    [[nodiscard]] QWidget *pageWidget() const;
    /// Shows the page in the text browser from now on: what a backend asks for that has broken down.
    void fallBack();

    /// What views that have shown no page yet will show theirs with, until the token goes. The newest that still stands
    /// is asked.
    [[nodiscard]] static KXScopeToken setBackendFactory(BackendFactory factory);

    [[nodiscard]] QSize sizeHint() const override { return { 460, 320 }; }

Q_SIGNALS:
    void linkActivated(const QUrl &url);

private:
    void setBackend(std::unique_ptr<KXHTMLBackend> backend);

    QString m_html;
    std::unique_ptr<KXHTMLBackend> m_backend;
};
