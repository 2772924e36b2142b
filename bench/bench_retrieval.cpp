// Scoring one question against 20,000 chunks of 3,584 dimensions, next to one plain pass over the same
// vectors: the ratio shows how much the scoring costs beyond reading the memory it has to read anyway.
#include "BenchUtil.h"
#include "Services/Retriever.h"

#include <QElapsedTimer>
#include <QList>

#include <algorithm>
#include <numeric>
#include <random>

namespace {

constexpr int Chunks = 20000;
constexpr int Dimensions = 3584;
constexpr int Rounds = 5;

// The fastest way to touch every component once: four independent sums, nothing else.
double plainRead(const QList<DocumentChunk> &chunks)
{
    double s0 = 0, s1 = 0, s2 = 0, s3 = 0;
    for (const DocumentChunk &chunk : chunks) {
        const double *v = chunk.embedding.constData();
        const qsizetype n = chunk.embedding.size();
        qsizetype i = 0;
        for (; i + 4 <= n; i += 4) {
            s0 += v[i];
            s1 += v[i + 1];
            s2 += v[i + 2];
            s3 += v[i + 3];
        }
        for (; i < n; ++i)
            s0 += v[i];
    }
    return s0 + s1 + s2 + s3;
}

template <typename F> double bestMs(F &&f)
{
    double best = 1e300;
    for (int r = 0; r < Rounds; ++r) {
        QElapsedTimer timer;
        timer.start();
        f();
        best = std::min(best, double(timer.nsecsElapsed()) / 1e6);
    }
    return best;
}

} // namespace

int main()
{
    std::mt19937_64 random(42);
    std::normal_distribution<double> normal;
    QList<DocumentChunk> chunks;
    chunks.reserve(Chunks);
    QList<double> norms;
    for (int c = 0; c < Chunks; ++c) {
        QList<double> v(Dimensions);
        double sum = 0;
        for (double &x : v) {
            x = normal(random);
            sum += x * x;
        }
        norms.append(std::sqrt(sum));
        chunks.append({QStringLiteral("chunk %1").arg(c), std::move(v)});
    }
    QList<double> query(Dimensions);
    for (double &x : query)
        x = normal(random);

    volatile double sink = 0;
    const double readMs = bestMs([&] { sink = plainRead(chunks); });
    const double scoreMs = bestMs([&] { sink = Retriever::scoreAll(query, chunks, norms).first(); });
    const double scoreNoNormsMs = bestMs([&] { sink = Retriever::scoreAll(query, chunks).first(); });
    const double rankMs = bestMs([&] {
        const QList<double> scores = Retriever::scoreAll(query, chunks, norms);
        QList<qsizetype> order(scores.size());
        std::iota(order.begin(), order.end(), qsizetype(0));
        std::stable_sort(order.begin(), order.end(),
                         [&](qsizetype a, qsizetype b) { return scores[a] > scores[b]; });
        sink = double(order.first());
    });
    (void)sink;

    Bench::report(QStringLiteral("plain read of 20000 x 3584 doubles (best of 5)"), readMs,
                  QStringLiteral("ms"));
    Bench::report(QStringLiteral("scoring with kept norms"), scoreMs, QStringLiteral("ms"));
    Bench::report(QStringLiteral("scoring with norms computed per turn"), scoreNoNormsMs,
                  QStringLiteral("ms"));
    Bench::report(QStringLiteral("scoring + stable sort (one question)"), rankMs, QStringLiteral("ms"));
    Bench::report(QStringLiteral("ratio scoring+sort / plain read"), rankMs / readMs, QStringLiteral("x"));
    Bench::report(QStringLiteral("memory read"), double(Chunks) * Dimensions * 8 / (readMs / 1000) / 1e9,
                  QStringLiteral("GB/s"));
    Bench::report(QStringLiteral("peak RSS"), Bench::peakRssMiB(), QStringLiteral("MiB"));
    return 0;
}
