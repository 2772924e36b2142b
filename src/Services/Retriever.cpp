#include "Retriever.h"

#include "Core/Graphemes.h"
#include "Services/ContextManager.h"
#include "Services/InfomaniakAPI.h"
#include "Services/KnowledgeSnapshot.h"

#include <QFileInfo>
#include <QtConcurrent/QtConcurrentRun>

#include <qcoro/qcorofuture.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

const QString ShortenedMarker = QStringLiteral("\n[... gekürzt ...]");

bool isAlphanumeric(char32_t c)
{
    switch (QChar::category(c)) {
    case QChar::Letter_Uppercase:
    case QChar::Letter_Lowercase:
    case QChar::Letter_Titlecase:
    case QChar::Letter_Modifier:
    case QChar::Letter_Other:
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
    case QChar::Mark_Enclosing:
    case QChar::Number_DecimalDigit:
    case QChar::Number_Letter:
    case QChar::Number_Other:
        return true;
    default:
        return false;
    }
}

double norm(const double *v, qsizetype n)
{
    double sum = 0.0;
    for (qsizetype i = 0; i < n; ++i)
        sum += v[i] * v[i];
    return std::sqrt(sum);
}

QString threeDecimals(double value)
{
    return QString::number(value, 'f', 3);
}

struct Match {
    const DocumentChunk *chunk;
    double score;
};

// Everything after the question's vector: scores, matches, the context text and the message. Runs on the
// thread pool; the snapshot and the chunks are its own copies.
std::optional<QString> assemble(const QList<double> &query, const QList<DocumentChunk> &chunks,
                                std::shared_ptr<const KnowledgeSnapshot> snapshot,
                                const QList<QUrl> &filenameMatches, const QString &systemPrompt)
{
    // Chunks handed over unchanged from the knowledge base come with their norms.
    const bool sameChunks = chunks.constData() == snapshot->globalChunks.constData() &&
                            chunks.size() == snapshot->globalNorms.size();
    const QList<double> scores =
        Retriever::scoreAll(query, chunks, sameChunks ? snapshot->globalNorms : QList<double>());

    QList<qsizetype> order(chunks.size());
    std::iota(order.begin(), order.end(), qsizetype(0));
    // Not-a-number ranks last, so the comparison stays a strict weak order.
    auto key = [&scores](qsizetype i) { return std::isnan(scores[i]) ? -HUGE_VAL : scores[i]; };
    std::stable_sort(order.begin(), order.end(),
                     [&key](qsizetype a, qsizetype b) { return key(a) > key(b); });

    const double topScore = order.isEmpty() ? std::nan("") : scores[order.first()];
    QList<Match> matches;
    if (topScore > Retriever::TopScoreThreshold) {
        for (qsizetype i : order) {
            if (!(scores[i] > Retriever::MatchThreshold) || matches.size() == Retriever::MaxSemanticMatches)
                break;
            matches.append({&chunks[i], scores[i]});
        }
    }
    ContextManager::log(QStringLiteral("🔍 RAG: topScore=") + threeDecimals(topScore) +
                        QStringLiteral(", semantic matches=%1, filename matches=%2")
                            .arg(matches.size())
                            .arg(filenameMatches.size()));

    QList<QUrl> relevant;
    for (const Match &match : std::as_const(matches)) {
        ContextManager::log(QStringLiteral(" - [") + threeDecimals(match.score) + QStringLiteral("] ") +
                            Graphemes::prefix(match.chunk->text, 80) + QStringLiteral("..."));
        const auto source = snapshot->chunkSourceMap.constFind(Graphemes::prefix(match.chunk->text, 100));
        if (source != snapshot->chunkSourceMap.constEnd() && !relevant.contains(source.value()))
            relevant.append(source.value());
    }
    for (const QUrl &url : filenameMatches) {
        if (!relevant.contains(url))
            relevant.append(url);
    }
    if (relevant.isEmpty())
        return std::nullopt;

    QString context = QStringLiteral("\n\n");
    qsizetype used = 0;
    for (const QUrl &url : std::as_const(relevant)) {
        const QString name = url.fileName();
        const auto text = snapshot->fileTexts.constFind(url);
        if (text != snapshot->fileTexts.constEnd()) {
            const qsizetype remaining = Retriever::ContextBudget - used;
            if (remaining <= Retriever::MinimumRemaining) {
                ContextManager::log(QStringLiteral(" ⚠️ Context limit reached, skipping ") + name);
                break;
            }
            QString piece = text.value();
            if (Graphemes::longerThan(piece, remaining))
                piece = Graphemes::prefix(piece, remaining) + ShortenedMarker;
            context +=
                QStringLiteral("--- ") + name + QStringLiteral(" ---\n") + piece + QStringLiteral("\n\n");
            const qsizetype length = Graphemes::count(piece);
            used += length;
            ContextManager::log(
                QStringLiteral("📄 Injected full text of %1 (%2 chars)").arg(name, QString::number(length)));
        } else {
            // Still being processed: the matching chunks stand in for the text.
            for (const Match &match : std::as_const(matches)) {
                const qsizetype length = Graphemes::count(match.chunk->text);
                if (used + length > Retriever::ContextBudget)
                    break;
                context += match.chunk->text + QLatin1Char('\n');
                used += length;
            }
        }
    }

    return QStringLiteral("<database_schema>\n") + snapshot->overview +
           QStringLiteral("\n</database_schema>\n\n<relevant_data>\n") + context +
           QStringLiteral("\n</relevant_data>\n\n<instructions>\n") + systemPrompt +
           QStringLiteral("\nBeantworte die Frage anhand der oben bereitgestellten Daten. Erfinde KEINE "
                          "Informationen, die nicht in den Daten stehen. Antworte präzise und hilfreich.\n"
                          "</instructions>");
}

} // namespace

double Retriever::cosineSimilarity(const QList<double> &a, const QList<double> &b)
{
    if (a.size() != b.size())
        return 0.0;
    double dot = 0.0;
    for (qsizetype i = 0; i < a.size(); ++i)
        dot += a[i] * b[i];
    return dot / (norm(a.constData(), a.size()) * norm(b.constData(), b.size()));
}

QList<double> Retriever::scoreAll(const QList<double> &query, const QList<DocumentChunk> &chunks,
                                  const QList<double> &norms)
{
    const qsizetype n = chunks.size();
    const qsizetype dims = query.size();
    const double *q = query.constData();
    const double queryNorm = norm(q, dims);
    const bool haveNorms = norms.size() == n;
    QList<double> scores(n, 0.0);

    auto finish = [&](qsizetype i, double dot) {
        const double chunkNorm = haveNorms ? norms[i] : norm(chunks[i].embedding.constData(), dims);
        scores[i] = dot / (queryNorm * chunkNorm);
    };

    // Four chunks of the query's length at a time: four independent sums, each still added from the first
    // index to the last, so the result is exactly the one-by-one result while the memory reads overlap.
    qsizetype pending[4];
    int filled = 0;
    auto flush = [&] {
        if (filled == 4) {
            const double *a = chunks[pending[0]].embedding.constData();
            const double *b = chunks[pending[1]].embedding.constData();
            const double *c = chunks[pending[2]].embedding.constData();
            const double *d = chunks[pending[3]].embedding.constData();
            double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
            for (qsizetype k = 0; k < dims; ++k) {
                const double x = q[k];
                s0 += x * a[k];
                s1 += x * b[k];
                s2 += x * c[k];
                s3 += x * d[k];
            }
            finish(pending[0], s0);
            finish(pending[1], s1);
            finish(pending[2], s2);
            finish(pending[3], s3);
        } else {
            for (int j = 0; j < filled; ++j) {
                const double *a = chunks[pending[j]].embedding.constData();
                double s = 0.0;
                for (qsizetype k = 0; k < dims; ++k)
                    s += q[k] * a[k];
                finish(pending[j], s);
            }
        }
        filled = 0;
    };
    for (qsizetype i = 0; i < n; ++i) {
        if (chunks[i].embedding.size() != dims)
            continue; // different length: 0.0
        pending[filled++] = i;
        if (filled == 4)
            flush();
    }
    flush();
    return scores;
}

QSet<QString> Retriever::words(const QString &text)
{
    QSet<QString> result;
    const QString lowered = text.toLower();
    QString piece;
    auto take = [&] {
        if (Graphemes::longerThan(piece, 1))
            result.insert(piece);
        piece.clear();
    };
    for (qsizetype i = 0; i < lowered.size(); ++i) {
        char32_t c = lowered[i].unicode();
        qsizetype width = 1;
        if (QChar::isHighSurrogate(c) && i + 1 < lowered.size() && lowered[i + 1].isLowSurrogate()) {
            c = QChar::surrogateToUcs4(lowered[i], lowered[i + 1]);
            width = 2;
        }
        if (isAlphanumeric(c))
            piece += lowered.mid(i, width);
        else
            take();
        i += width - 1;
    }
    take();
    return result;
}

QCoro::Task<std::optional<QString>>
Retriever::knowledgeSystemMessage(const InfomaniakAPI &api, const QString &message,
                                  const QList<DocumentChunk> &externalChunks, const QString &systemPrompt)
{
    if (externalChunks.isEmpty()) {
        ContextManager::log(
            QStringLiteral("⚠️ RAG: No external chunks available (globalChunks is empty)"));
        co_return std::nullopt;
    }
    // Own copies: the caller's arguments may not outlive the first suspension.
    const QList<DocumentChunk> chunks = externalChunks;
    const QString question = message;
    const QString prompt = systemPrompt;
    ContextManager::log(QStringLiteral("🔍 RAG: Query='") + question +
                        QStringLiteral("', %1 chunks available").arg(chunks.size()));

    const ContextManager *manager = ContextManager::shared();
    const std::shared_ptr<const KnowledgeSnapshot> snapshot =
        manager ? manager->snapshot() : std::make_shared<const KnowledgeSnapshot>();

    const QString lowered = question.toLower();
    const QSet<QString> questionWords = words(question);
    QList<QUrl> filenameMatches;
    for (const QUrl &url : snapshot->trackedFiles) {
        const QFileInfo info(url.fileName());
        const QString extension = info.suffix().toLower();
        const QSet<QString> nameWords = words(info.completeBaseName());
        // A file without an extension is not matched by every question through the empty text.
        const bool matches = nameWords.intersects(questionWords) ||
                             (!extension.isEmpty() && lowered.contains(extension)) ||
                             (extension == QLatin1String("xlsx") && lowered.contains(QLatin1String("excel")));
        if (matches) {
            filenameMatches.append(url);
            ContextManager::log(QStringLiteral("📎 Filename match: '") + url.fileName() +
                                QStringLiteral("' mentioned in query"));
        }
    }

    const QStringList input(question);
    const QString model = api.embeddingModel();
    const EmbeddingsResult embedded = co_await api.createEmbeddings(input, model, QStringLiteral("query"));
    if (!embedded.ok()) {
        ContextManager::log(QStringLiteral("❌ RAG Error: ") + embedded.error->fullText());
        co_return std::nullopt;
    }
    if (embedded.vectors.isEmpty())
        co_return std::nullopt;

    co_return co_await QtConcurrent::run(assemble, embedded.vectors.first(), chunks, snapshot,
                                         filenameMatches, prompt);
}
