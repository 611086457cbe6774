// The search's popover: groups with their buttons, what matched set off, the selection.

#include <QBoxLayout>
#include <QLineEdit>

#include <kestrixkit/navigation/KXSearchViewController.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>

#include "Pages.h"

using namespace Qt::StringLiterals;

namespace gallery {

namespace {

class PageSearchViewController : public KXSearchViewController
{
    Q_OBJECT
public:
    using KXSearchViewController::KXSearchViewController;
    [[nodiscard]] KXSearchResultCell resultCell(const QVariant &item) const override
    {
        const QStringList parts = item.toString().split(u'|');
        return { parts.value(0), parts.value(1), parts.size() > 2 ? QIcon(parts.value(2)) : QIcon() };
    }
};

KXSearchResultsGrouping::Ref grouping(const QString &name, const QVariantList &items)
{
    auto made = std::make_shared<KXSearchResultsGrouping>();
    made->name = name;
    made->items = items;
    return made;
}

KXSearchViewController *search(QWidget *page, const QString &term, const QList<KXSearchResultsGrouping::Ref> &results)
{
    auto *controller = new PageSearchViewController({}, page);
    auto *frame = new QWidget;
    frame->setFixedSize(430, 400);
    controller->appearIn(frame);
    controller->setSearchTerm(term);
    controller->setAllResults(results);
    controller->processResults(results);
    controller->selectRow(2);
    page->layout()->addWidget(frame);
    return controller;
}

}

QWidget *searchPage(const Texts &text)
{
    auto *page = new KXThemeableView;
    auto *columns = new QHBoxLayout(page);
    columns->setContentsMargins(16, 16, 16, 16);
    columns->setSpacing(16);
    const auto tracks = grouping(text("Tracks"),
        { u"Love Lost|Björk — Post"_s, u"Lovely Day (Original Mix)|Bill|:/kestrixkit/icons/library.svg"_s,
            u"Deep Love|Jay-Z"_s, u"Lover|東京タワー — 夏の夜"_s, u"Love 5"_s, u"Love 6"_s });
    const auto artists = grouping(text("Artists"), { u"Lovage"_s, u"Courtney Love"_s });
    search(page, u"lov"_s, { tracks, artists })->searchField()->setProperty(focusProperty, true);
    auto *expanded = search(page, u"lov d"_s, { tracks, artists });
    expanded->showAllResultsForGrouping(tracks);
    search(page, u"nothing like it"_s, {});
    return page;
}

}

#include "SearchPage.moc"
