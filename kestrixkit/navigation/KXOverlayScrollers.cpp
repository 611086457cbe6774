#include <kestrixkit/navigation/KXOverlayScrollers.h>

#include <QProxyStyle>
#include <QScrollBar>

namespace {

class SolidScrollersStyle : public QProxyStyle
{
public:
    using QProxyStyle::QProxyStyle;
    int styleHint(
        StyleHint hint, const QStyleOption *option, const QWidget *widget, QStyleHintReturn *returned) const override
    {
        return hint == SH_ScrollBar_Transient ? 0 : QProxyStyle::styleHint(hint, option, widget, returned);
    }
};

}

void KXDisableOverlayScrollers(QWidget *view)
{
    for (QScrollBar *scroller : view ? view->findChildren<QScrollBar *>() : QList<QScrollBar *>()) {
        if (!scroller->style()->styleHint(QStyle::SH_ScrollBar_Transient, nullptr, scroller))
            continue;
        auto *const solid = new SolidScrollersStyle;
        solid->setParent(scroller);
        scroller->setStyle(solid);
    }
}

void KXEnabledOverlayScrollers(QWidget *view)
{
    for (QScrollBar *scroller : view ? view->findChildren<QScrollBar *>() : QList<QScrollBar *>()) {
        if (auto *const solid = dynamic_cast<SolidScrollersStyle *>(scroller->style())) {
            scroller->setStyle(nullptr);
            delete solid;
        }
    }
}
