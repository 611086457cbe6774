#pragma once

#include <QPointer>
#include <QWebEngineProfile>
#include <QWebEngineUrlRequestInterceptor>

#include <kestrixkit/toolkit/KXHTMLView.h>

class QWebEngineView;

/// A page in the web engine that shows what it is given and nothing else: it runs no script, sends no request, and
/// follows no link.
class KXWebHTMLBackend : public KXHTMLBackend
{
public:
    explicit KXWebHTMLBackend(KXHTMLView *view);
    ~KXWebHTMLBackend() override;

    QWidget *widget() override;
    void setHTML(const QString &html) override;

private:
    class Page;
    class NoRequests : public QWebEngineUrlRequestInterceptor
    {
    public:
        void interceptRequest(QWebEngineUrlRequestInfo &info) override;
    };

    NoRequests m_noRequests;
    QWebEngineProfile m_profile; // without a name: off the record. Outlives the page.
    QPointer<QWebEngineView> m_engineView;
};
