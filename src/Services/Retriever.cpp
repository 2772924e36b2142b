#include "Retriever.h"

#include "Services/ContextManager.h"

// Until the knowledge base can be searched, every turn goes out with the plain system message.
QCoro::Task<std::optional<QString>> Retriever::knowledgeSystemMessage(const InfomaniakAPI &, const QString &,
                                                                      const QList<DocumentChunk> &externalChunks,
                                                                      const QString &)
{
    if (externalChunks.isEmpty())
        ContextManager::log(QStringLiteral("⚠️ RAG: No external chunks available (globalChunks is empty)"));
    co_return std::nullopt;
}
