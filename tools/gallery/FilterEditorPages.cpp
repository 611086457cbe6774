// Editors of single filters that show beforehand what a choice would make of the list.

#include <QBoxLayout>
#include <QTemporaryDir>

#include <kestrixkit/filter_ui/editors/KXDistributionFilterViewController.h>
#include <kestrixkit/filter_ui/editors/KXFacetFilterViewController.h>
#include <kestrixkit/filters/KXFilters.h>
#include <kestrixkit/theme/controls/KXThemeableTableView.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>

#include "Pages.h"

using namespace Qt::StringLiterals;

namespace gallery {

namespace {

class GallerySong : public KXManagedObjectOf<GallerySong>
{
public:
    static constexpr QLatin1StringView entityName { "GallerySong" };
    KX_ATTRIBUTE(QString, genre, setGenre)
    KX_ATTRIBUTE(double, bpm, setBpm)
};

KXManagedObjectModel::Ref songsModel()
{
    KXFilters::registerEntities();
    GallerySong::registerEntity();
    static const KXManagedObjectModel::Ref model = KXManagedObjectModel::modelByMergingModels(
        { KXManagedObjectModel::make({ KXEntityDescription(u"GallerySong"_s)
                                           .add(KXPropertyDescription::attribute(u"genre"_s, KXAttributeType::String))
                                           .add(KXPropertyDescription::attribute(u"bpm"_s, KXAttributeType::Double)) }),
            KXFilters::managedObjectModel() });
    return model;
}

/// Songs in a store that goes with the page, a set of filters over them, and editors of these.
class SongShelf : public QObject
{
public:
    SongShelf(const Texts &text, QObject *parent)
        : QObject(parent)
        , m_text(text)
        , m_context(KXManagedObjectContext::contextWithPersistentStoreCoordinator(
              KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
                  QUrl::fromLocalFile(m_folder.filePath(u"songs.db"_s)), songsModel())))
        , m_set(KXFilterSet::createInContext(*m_context))
        , m_live(m_context, QString(GallerySong::entityName))
        , m_counts(m_live)
    {
        for (int i = 0; i < 400; ++i) {
            const auto song = GallerySong::createInContext(*m_context);
            song->setGenre(text(genres[i * i % 23 % (std::size(genres) - 1)]));
            song->setBpm(118 + (i % 20) * 0.5 + (i * 7 % 11) * 0.5);
        }
        m_context->save();
        m_counts.setFilterSet(m_set);
    }
    ~SongShelf() override { m_editors.clear(); }

    /// With nothing chosen; or with one value asked for and two kept out, which keeps nothing out.
    QWidget *facet(bool hasChoices)
    {
        const auto filter = KXFacetFilter::createInContext(*m_context);
        filter->setName(m_text("Genre"));
        filter->setLocalValuePredicateKeyPath(u"genre"_s);
        filter->setEnabled(true);
        filter->setFilterSet(m_set);
        auto editor = std::make_unique<KXFacetFilterViewController>(filter);
        QList<KXFacetFilterViewController::Offer> offers;
        for (const char *genre : genres)
            offers.append({ m_text(genre), m_text(genre) });
        editor->setOffers(offers);
        using State = KXFacetFilterViewController::State;
        for (int i = 0; i < 3 && hasChoices; ++i)
            editor->setState(offers[i].value, i == 0 ? State::Included : State::Excluded);
        editor->setWhatIfCounts(&m_counts);
        editor->setFilteredEntity(m_context->persistentStoreCoordinator()->model()->entity(GallerySong::entityName));
        QWidget *const view = editor->view();
        editor->searchField()->setProperty(focusProperty, !hasChoices);
        editor->valuesView()->setProperty(focusProperty, hasChoices);
        editor->valuesView()->setCurrentIndex(editor->valuesModel()->index(1));
        view->setFixedSize(300, 360);
        m_editors.push_back(std::move(editor));
        return view;
    }
    QWidget *tempo()
    {
        const auto filter = KXRangeFilter::createInContext(*m_context);
        filter->setName(m_text("Tempo"));
        filter->setLocalValuePredicateKeyPath(u"bpm"_s);
        filter->setEnabled(true);
        filter->setStartValue(KXDecimal::fromInteger(122));
        filter->setEndValue(KXDecimal::fromInteger(126));
        filter->setStartValueOperatorType(KXPredicateOperator::GreaterThanOrEqual);
        filter->setEndValueOperatorType(KXPredicateOperator::LessThanOrEqual);
        filter->setFilterSet(m_set);
        auto editor = std::make_unique<KXDistributionFilterViewController>(filter);
        editor->setUnitText(m_text("BPM"));
        QWidget *const view = editor->view();
        editor->setWhatIfCounts(&m_counts);
        editor->distributionView()->setProperty(focusProperty, true);
        view->setFixedSize(300, 170);
        m_editors.push_back(std::move(editor));
        return view;
    }

private:
    static constexpr const char *genres[]
        = { "House", "Deep house", "Techno", "Drum and bass", "Electro", "Ambient", "Nothing of this" };

    const Texts m_text;
    QTemporaryDir m_folder;
    KXManagedObjectContext::Ref m_context;
    KXRef<KXFilterSet> m_set;
    KXLiveCounts m_live;
    KXFilterSetWhatIfCounts m_counts;
    std::vector<std::unique_ptr<KXViewController>> m_editors;
};

}

QWidget *filterEditorsPage(const Texts &text)
{
    auto *page = new KXThemeableView;
    auto *columns = new QHBoxLayout(page);
    columns->setContentsMargins(16, 16, 16, 16);
    columns->setSpacing(16);
    auto *plain = new SongShelf(text, page);
    columns->addWidget(plain->facet(false), 0, Qt::AlignTop);
    columns->addWidget(plain->tempo(), 0, Qt::AlignTop);
    columns->addWidget((new SongShelf(text, page))->facet(true), 0, Qt::AlignTop);
    return page;
}

}
