#pragma once

#include <memory>

#include <QMetaType>
#include <QString>
#include <QVariantList>

#include <kestrixkit/foundation/KXGlobal.h>

/// Results of a search that belong together under one title. Held by shared_ptr and told from others by identity. Main
/// thread.
struct KXSearchResultsGrouping
{
    using Ref = std::shared_ptr<KXSearchResultsGrouping>;

    QString name; ///< title of the group's row
    int tag = 0; ///< free for whoever made it
    QVariantList items; ///< in the order in which they are shown
    int itemLimit = -1; ///< for whoever searches; what is shown at first is the controller's business
};

Q_DECLARE_METATYPE(KXSearchResultsGrouping::Ref)
