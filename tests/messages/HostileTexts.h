#pragma once

#include <QStringList>

/// Texts that would run, fetch, frame or restyle something in a page that let them. `image` is a red one in a file.
inline QStringList hostileTexts(const QString &server, const QString &image)
{
    QStringList texts;
    for (const char *text :
        { "<script src=\"%1/a.js\"></script>", "<script>new Image().src='%1/b'; document.title='owned'</script>",
            "<img src=\"%1/c.png\" onerror=\"document.title='owned'\">", "<img src=\"%2\">",
            "<iframe src=\"%1/d\"></iframe>", "<iframe src=\"data:text/html,<img src='%1/e'>\"></iframe>",
            "<object data=\"%1/f\"></object><embed src=\"%1/g\">",
            "<link rel=\"stylesheet\" href=\"%1/h.css\"><link rel=\"prefetch\" href=\"%1/i\">",
            "<style>@import url('%1/j.css'); body, td { background: #ff0000 url('%1/k.png') }</style>",
            "<table style=\"background-color: #ff0000\"><tr><td background=\"%1/l.png\">x</td></tr></table>",
            "<meta http-equiv=\"refresh\" content=\"0; url=%1/m\">", "<base href=\"%1/\"><img src=\"n.png\">",
            "<svg onload=\"document.title='owned'\"><image href=\"%1/o\"/></svg>",
            "<video autoplay src=\"%1/p\"></video>",
            "<form action=\"%1/q\"><input autofocus onfocus=\"this.form.submit()\"></form>",
            "</td></tr></table></body><img src=\"%1/r\">", "<b style=\"background-color: #ff0000\">x</b>",
            "<body onload=\"document.title='owned'\" bgcolor=\"#ff0000\">", "<a href=\"%1/s\" ping=\"%1/t\">link</a>",
            "<!-- <img src=\"%1/u\">", "<![CDATA[<img src=\"%1/v\">]]>" })
        texts.append(
            QString::fromLatin1(text).replace(QLatin1StringView("%1"), server).replace(QLatin1StringView("%2"), image));
    return texts;
}
