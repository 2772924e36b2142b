#pragma once

#include "Services/DocumentChunk.h"

#include <QList>
#include <QSet>
#include <QString>

#include <qcoro/qcorotask.h>

#include <optional>

class InfomaniakAPI;

// Decides which knowledge goes into a chat turn: embeds the question, scores every chunk, adds files the
// question names, and builds the tagged system message from the relevant files' texts. Never fails: without
// knowledge, or when the question cannot be embedded, it yields nothing and the plain system message is used.
// The knowledge base is read from its published snapshot, and the scoring runs on the thread pool.
namespace Retriever {

constexpr double TopScoreThreshold = 0.18;
constexpr double MatchThreshold = 0.15;
constexpr int MaxSemanticMatches = 10;
constexpr qsizetype ContextBudget = 20000;
constexpr qsizetype MinimumRemaining = 500;

// Called on the main thread (the network is reached from there).
QCoro::Task<std::optional<QString>> knowledgeSystemMessage(const InfomaniakAPI &api, const QString &message,
                                                           const QList<DocumentChunk> &externalChunks,
                                                           const QString &systemPrompt);

// Dot product over the product of the Euclidean norms, each summed from the first index to the last; 0.0 for
// vectors of different lengths. A zero vector gives a result that is not a number, which passes no threshold.
double cosineSimilarity(const QList<double> &a, const QList<double> &b);
// The same score for every chunk; `norms` may hold each chunk's norm already (same index), or be empty.
QList<double> scoreAll(const QList<double> &query, const QList<DocumentChunk> &chunks,
                       const QList<double> &norms = {});
// The lowercased text cut at every character that is not a letter, mark or digit of any script, keeping the
// pieces of at least 2 characters.
QSet<QString> words(const QString &text);

} // namespace Retriever
