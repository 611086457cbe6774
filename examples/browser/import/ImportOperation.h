#pragma once

#include <kestrixkit/context/KXManagedObjectContextOperation.h>

#include "import/Importer.h"

/// An import in the background, whose saves the window's context takes over as they happen.
class ImportOperation : public KXManagedObjectContextOperation
{
public:
    /// Answers what to import; an empty task where there is nothing to do or where the error is filled. Called in the
    /// background.
    using Source = std::function<ImportTask(QString *error)>;

    /// progress is called in the background.
    ImportOperation(const KXManagedObjectContext::Ref &mainContext, Source source, Importer::Progress progress);

    void main() override;

    /// Once it is done.
    [[nodiscard]] const ImportResult &result() const { return m_result; }
    /// Identity of the context that imports, as the change feed names it; nullptr before it exists. Any thread.
    [[nodiscard]] const void *importingContext() const { return m_importingContext; }

private:
    const Source m_source;
    const Importer::Progress m_progress;
    ImportResult m_result { .cancelled = true }; // for one that never began
    std::atomic<const void *> m_importingContext { nullptr };
};
