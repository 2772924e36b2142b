#include "Commands.h"

#include "Services/Chunker.h"
#include "Services/TextExtraction.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

// The debug log's header belongs to the knowledge base's start; these commands only add entries to
// the log, as a processing run would.

namespace {

void writeOut(const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

int usage(const char *line)
{
    std::fprintf(stderr, "usage: quillmoor-cli %s\n", line);
    return Cli::ExitUsage;
}

} // namespace

int Cli::extract(const QStringList &args)
{
    bool attachment = false;
    QStringList files;
    for (const QString &arg : args) {
        if (arg == QLatin1String("--attachment"))
            attachment = true;
        else if (arg.startsWith(QLatin1String("--")))
            return usage("extract [--attachment] FILE");
        else
            files.append(arg);
    }
    if (files.size() != 1)
        return usage("extract [--attachment] FILE");

    const std::optional<QString> text = attachment ? TextExtraction::forAttachment(files.first())
                                                   : TextExtraction::forKnowledge(files.first());
    if (!text || text->isEmpty())
        return ExitNothing;
    writeOut(text->toUtf8());
    return ExitOk;
}

int Cli::chunks(const QStringList &args)
{
    if (args.size() != 1 || args.first().startsWith(QLatin1String("--")))
        return usage("chunks FILE");
    const QString path = args.first();
    const QString text = TextExtraction::forKnowledge(path).value_or(QString());

    Chunker::ChunkPlan plan;
    if (!text.isEmpty())
        plan = Chunker::plan(QFileInfo(path).fileName(), text);

    QJsonObject object;
    object.insert(QStringLiteral("chunks"), QJsonArray::fromStringList(plan.chunks));
    object.insert(QStringLiteral("description"), plan.description);
    writeOut(QJsonDocument(object).toJson(QJsonDocument::Compact));
    return ExitOk;
}
