// Cost of rendering a streaming answer: one piece at 30,000 characters, and frames at 200 pieces a second.
#include "BenchUtil.h"

#include "Markdown/MarkdownDocumentWriter.h"
#include "Markdown/MarkdownRenderer.h"

#include <QAbstractTextDocumentLayout>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QTextDocument>
#include <QTimer>

#include <algorithm>

namespace {

constexpr qreal BubbleTextWidth = 316; // a 400-point window less paddings
constexpr int ViewportHeight = 480;

QString answerText(qsizetype length)
{
    const QStringList lines = {
        QStringLiteral("## Abschnitt über **Messwerte** und `Einheiten`"),
        QStringLiteral(
            "Ein längerer Absatz mit *kursiven* Stellen, **fetten Wörtern** und etwas `code`, der über "
            "mehrere Zeilen umbricht, weil er deutlich breiter ist als die Sprechblase."),
        QStringLiteral("- erster Punkt mit **Betonung**"),
        QStringLiteral("- zweiter Punkt mit `inline code` und Text"),
        QStringLiteral("12. nummerierter Eintrag"),
        QString(),
        QStringLiteral("---"),
    };
    QString text;
    for (qsizetype i = 0; text.size() < length; ++i)
        text += lines.at(i % lines.size()) + QLatin1Char('\n');
    text.truncate(length);
    return text;
}

MarkdownDocumentWriter::Style style()
{
    return {Markdown::systemFont(14, QFont::Normal, true), Qt::black, QColor(255, 149, 0),
            MarkdownDocumentWriter::bubbleParagraphStyle()};
}

void prepare(QTextDocument &document)
{
    document.setDocumentMargin(0);
    document.setTextWidth(BubbleTextWidth);
    document.setDefaultFont(style().font);
}

// The bottom of the bubble, as the list shows it while following the end.
void paintVisibleEnd(QTextDocument &document, QImage &frame)
{
    frame.fill(Qt::transparent);
    QPainter painter(&frame);
    const qreal top = std::max<qreal>(0, document.size().height() - ViewportHeight);
    painter.translate(0, -top);
    document.drawContents(&painter, QRectF(0, top, BubbleTextWidth, ViewportHeight));
}

template <typename F> double medianMs(int runs, F &&step)
{
    QList<double> samples;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        step(i);
        samples.append(double(timer.nsecsElapsed()) / 1e6);
    }
    std::sort(samples.begin(), samples.end());
    return samples.at(samples.size() / 2);
}

void onePieceAt30k()
{
    const QString base = answerText(30000);
    const QString piece = QStringLiteral(" mehr");
    const auto s = style();

    Bench::report(QStringLiteral("parseMarkdown of 30,000 characters"),
                  medianMs(20,
                           [&](int i) {
                               parseMarkdown(base + piece.repeated(i), s.font, s.textColor, s.accentColor,
                                             s.paragraphStyle);
                           }),
                  QStringLiteral("ms"));

    QTextDocument full;
    prepare(full);
    MarkdownDocumentWriter fullWriter;
    Bench::report(QStringLiteral("whole message again per piece (render + layout)"),
                  medianMs(20,
                           [&](int i) {
                               fullWriter.renderFully(&full, base + piece.repeated(i + 1), s);
                               full.size();
                           }),
                  QStringLiteral("ms"));

    QTextDocument streamed;
    prepare(streamed);
    MarkdownDocumentWriter writer;
    writer.render(&streamed, base, s);
    streamed.size();
    QString text = base;
    Bench::report(QStringLiteral("last line only per piece (render + layout)"),
                  medianMs(200,
                           [&](int) {
                               text += piece;
                               writer.render(&streamed, text, s);
                               streamed.size();
                           }),
                  QStringLiteral("ms"));
}

// 200 pieces a second into one answer until it is 30,000 characters long; each tick renders, lays out and
// paints the visible end, which is the main thread's share of a frame.
void streamingFrames()
{
    const QString answer = answerText(30000);
    QTextDocument document;
    prepare(document);
    MarkdownDocumentWriter writer;
    QImage frame(int(BubbleTextWidth), ViewportHeight, QImage::Format_ARGB32_Premultiplied);
    const auto s = style();

    qsizetype at = 0;
    int pieces = 0;
    QList<double> frames;
    double longestLate = 0;
    QElapsedTimer clock;
    clock.start();
    QEventLoop loop;
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    tick.setInterval(5);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        longestLate = std::max(longestLate, double(clock.nsecsElapsed()) / 1e6 - 5.0 * pieces);
        const qsizetype length = 3 + (pieces * 7) % 6; // pieces of 3 to 8 characters
        at = std::min(answer.size(), at + length);
        ++pieces;
        QElapsedTimer work;
        work.start();
        writer.render(&document, answer.left(at), s);
        paintVisibleEnd(document, frame);
        frames.append(double(work.nsecsElapsed()) / 1e6);
        if (at >= answer.size())
            loop.quit();
    });
    tick.start();
    loop.exec();

    std::sort(frames.begin(), frames.end());
    Bench::report(QStringLiteral("streaming: pieces"), pieces, QString());
    Bench::report(QStringLiteral("streaming: median frame work (render + layout + paint)"),
                  frames.at(frames.size() / 2), QStringLiteral("ms"));
    Bench::report(QStringLiteral("streaming: 99th percentile frame work"),
                  frames.at(frames.size() * 99 / 100), QStringLiteral("ms"));
    Bench::report(QStringLiteral("streaming: longest frame work"), frames.last(), QStringLiteral("ms"));
    Bench::report(QStringLiteral("streaming: wall time for 30,000 characters"),
                  double(clock.nsecsElapsed()) / 1e9, QStringLiteral("s"));
}

} // namespace

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    onePieceAt30k();
    streamingFrames();
    Bench::report(QStringLiteral("peak RSS"), Bench::peakRssMiB(), QStringLiteral("MiB"));
    return 0;
}
