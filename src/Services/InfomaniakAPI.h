#pragma once

#include "Core/ProviderError.h"
#include "Models/Attachment.h"
#include "Services/ChatStream.h"
#include "Services/DocumentChunk.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <qcoro/qcorotask.h>

#include <memory>
#include <optional>

class QNetworkAccessManager;
class QNetworkRequest;

// One earlier message of the conversation as the provider sees it.
struct HistoryEntry {
    QString role; // "user" or "assistant"
    QString content;
    bool operator==(const HistoryEntry &) const = default;
};

// Vectors from the embeddings endpoint, or the error that stopped the call.
struct EmbeddingsResult {
    QList<QList<double>> vectors;
    std::optional<ProviderError> error;
    bool ok() const { return !error.has_value(); }
};

// The model identifiers a server lists, or why it listed none.
struct ModelsResult {
    QStringList models;
    std::optional<ProviderError> error;
    bool ok() const { return !error.has_value(); }
};

// The client of the provider's OpenAI-compatible API. Immutable after construction, so any number of chat
// turns and embedding calls may use it at once. All network traffic goes through one shared manager on the
// main thread; the work around it (reading attachments, encoding images, scoring) runs on the thread pool.
class InfomaniakAPI {
public:
    static inline const QString DefaultSystemPrompt =
        QStringLiteral("Du bist ein hilfreicher und kompetenter Assistent.");
    static inline const QString PlainStyleSentence =
        QStringLiteral("Antworte locker, kurz und natürlich. Keine Floskeln. Stelle dich NICHT vor und "
                       "erwähne NICHT wer du bist "
                       "oder für welche Firma du arbeitest.");

    static inline const QString DefaultEmbeddingModel = QStringLiteral("bge_multilingual_gemma2");

    InfomaniakAPI(const QString &apiKey, const QString &productId);
    // The compiled-in account, or the server the environment names: QUILLMOOR_API_BASE_URL, else
    // OPENAI_BASE_URL; QUILLMOOR_API_KEY, else OPENAI_API_KEY (only for a server named there, so a key meant
    // for another service never reaches the compiled-in provider); QUILLMOOR_EMBEDDING_MODEL for the vectors.
    static InfomaniakAPI fromEnvironment();

    const QString &apiKey() const { return m_apiKey; }
    const QString &productId() const { return m_productId; }
    const QString &baseURL() const { return m_baseURL; }
    // Whether the environment pointed the client at a server of the user's own.
    bool hasCustomEndpoint() const { return m_customEndpoint; }
    // The model that embeds knowledge chunks and questions alike.
    const QString &embeddingModel() const { return m_embeddingModel; }

    // The longest wait without data (60 s); tests shorten it.
    int transferTimeoutMs() const { return m_transferTimeoutMs; }
    void setTransferTimeoutMs(int ms) { m_transferTimeoutMs = ms; }

    // Starts one turn in the background and returns its stream at once.
    std::shared_ptr<ChatStream> sendStreamingMessage(const QString &message,
                                                     const QList<Attachment> &attachments,
                                                     const QList<DocumentChunk> &externalChunks,
                                                     const QString &model,
                                                     const std::optional<QString> &systemPrompt,
                                                     const QList<HistoryEntry> &conversationHistory) const;

    // One vector per text as the provider returns them (their number is not checked).
    QCoro::Task<EmbeddingsResult> createEmbeddings(const QStringList &texts, const QString &model,
                                                   const QString &mode) const;

    // The server's own list of models (GET `baseURL`/models, the OpenAI list format), in its order.
    QCoro::Task<ModelsResult> listModels() const;

    // The attachment path of text extraction: cut at 30,000 characters with a note; nothing when empty.
    static std::optional<QString> extractText(const QUrl &url);

    // The one network manager of the process (main thread).
    static QNetworkAccessManager &network();

private:
    // The set-up every call shares: POST target under `baseURL`, the inactivity time-out, the bearer token
    // and the JSON body's type.
    QNetworkRequest request(const QString &endpoint) const;

    // Runs on the main thread's event loop; the copy of the client keeps the turn independent of its caller.
    static QCoro::Task<> runTurn(InfomaniakAPI api, std::shared_ptr<ChatStream> stream, QString message,
                                 QList<Attachment> attachments, QList<DocumentChunk> externalChunks,
                                 QString model, std::optional<QString> systemPrompt,
                                 QList<HistoryEntry> history);

    QString m_apiKey;
    QString m_productId;
    QString m_baseURL;
    QString m_embeddingModel = DefaultEmbeddingModel;
    bool m_customEndpoint = false;
    int m_transferTimeoutMs = 60000;
};
