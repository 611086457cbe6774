#include "import/ImportOperation.h"

ImportOperation::ImportOperation(
    const KXManagedObjectContext::Ref &mainContext, Source source, Importer::Progress progress)
    : KXManagedObjectContextOperation(mainContext)
    , m_source(std::move(source))
    , m_progress(std::move(progress))
{
    setMergeChangesIntoMainContext(true);
}

void ImportOperation::main()
{
    m_result = {};
    QString error;
    const ImportTask task = m_source(&error);
    if (!error.isEmpty()) {
        m_result.error = KXError(KXKestrixKitErrorDomain, 0, error);
    } else if (!task.isEmpty()) {
        const KXManagedObjectContext::Ref context = localContext();
        m_importingContext = context.get();
        m_result = Importer(context, task).run([this] { return isCancelled(); }, m_progress);
    }
}
