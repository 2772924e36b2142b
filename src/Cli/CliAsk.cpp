#include "Commands.h"

#include "AppSettings.h"
#include "Chat/ChatSession.h"
#include "Services/ContextManager.h"

#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

#include <qcoro/qcorotask.h>

#include <cstdio>

namespace {

struct AskOptions {
    std::optional<QString> model;
    std::optional<QString> prompt;
    QString historyFile;
    QStringList attachments;
    QStringList knowledge;
    QString question;
};

int usageError(const QString &message)
{
    QTextStream(stderr) << "quillmoor-cli ask: " << message << "\n";
    return Cli::ExitUsage;
}

void writeOut(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

// Parses the arguments; returns an exit status when the command cannot run.
std::optional<int> parse(const QStringList &args, AskOptions &options)
{
    QStringList positional;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString &arg = args[i];
        const auto value = [&]() -> std::optional<QString> {
            if (i + 1 >= args.size())
                return std::nullopt;
            return args[++i];
        };
        if (arg == QLatin1String("--model") || arg == QLatin1String("--prompt") ||
            arg == QLatin1String("--history") || arg == QLatin1String("--attach") ||
            arg == QLatin1String("--knowledge")) {
            const std::optional<QString> v = value();
            if (!v)
                return usageError(arg + QStringLiteral(" needs a value"));
            if (arg == QLatin1String("--model"))
                options.model = *v;
            else if (arg == QLatin1String("--prompt"))
                options.prompt = *v;
            else if (arg == QLatin1String("--history"))
                options.historyFile = *v;
            else if (arg == QLatin1String("--attach"))
                options.attachments.append(*v);
            else
                options.knowledge.append(*v);
        } else if (arg == QLatin1String("--")) {
            positional.append(args.mid(i + 1));
            break;
        } else if (arg.startsWith(QLatin1String("--"))) {
            return usageError(QStringLiteral("unknown option ") + arg);
        } else {
            positional.append(arg);
        }
    }
    if (positional.size() != 1)
        return usageError(QStringLiteral("exactly one QUESTION is needed"));
    options.question = positional.first();
    // The chat window sends nothing for an empty text without attachments; here that would wait forever.
    if (options.question.isEmpty() && options.attachments.isEmpty())
        return usageError(QStringLiteral("the QUESTION is empty and nothing is attached"));
    for (const QString &file : options.attachments + options.knowledge)
        if (!QFileInfo::exists(file))
            return usageError(QStringLiteral("no such file: ") + file);
    return std::nullopt;
}

// The --history file: a JSON array of {"role", "content"} objects, oldest first.
std::optional<QList<Message>> readHistory(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read ") + path;
        return std::nullopt;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (!document.isArray()) {
        *error = path + QStringLiteral(" is not a JSON array of {\"role\", \"content\"} objects");
        return std::nullopt;
    }
    QList<Message> messages;
    for (const QJsonValue &value : document.array()) {
        const QJsonObject entry = value.toObject();
        if (!value.isObject() || !entry.value(QLatin1String("role")).isString() ||
            !entry.value(QLatin1String("content")).isString()) {
            *error = path + QStringLiteral(" is not a JSON array of {\"role\", \"content\"} objects");
            return std::nullopt;
        }
        messages.append(Message(entry.value(QLatin1String("content")).toString(),
                                entry.value(QLatin1String("role")).toString() == QLatin1String("user")));
    }
    return messages;
}

int runAsk(const AskOptions &options)
{
    auto api = std::make_shared<const InfomaniakAPI>(InfomaniakAPI::fromEnvironment());
    AppSettings settings;
    ContextManager contextManager(api);
    ChatSession session(contextManager, settings);
    session.setModelOverride(options.model);
    session.setPromptOverride(options.prompt);

    if (!options.historyFile.isEmpty()) {
        QString error;
        const std::optional<QList<Message>> history = readHistory(options.historyFile, &error);
        if (!history)
            return usageError(error);
        for (const Message &m : *history)
            session.appendMessage(m);
    }
    // Knowledge files are processed to the end first, so the turn retrieves from all of them.
    for (const QString &file : options.knowledge)
        contextManager.addFile(QUrl::fromLocalFile(QFileInfo(file).absoluteFilePath()));
    if (!options.knowledge.isEmpty())
        QCoro::waitFor(contextManager.waitUntilIdle());
    for (const QString &file : options.attachments)
        QCoro::waitFor(session.addAttachmentAsync(QUrl::fromLocalFile(QFileInfo(file).absoluteFilePath())));

    QEventLoop loop;
    int status = Cli::ExitOk;
    QObject::connect(&session, &ChatSession::pieceAppended, &writeOut);
    QObject::connect(&session, &ChatSession::turnFinished, &loop, [&](bool failed, const QString &) {
        status = failed ? Cli::ExitTurnFailed : Cli::ExitOk;
        loop.quit();
    });
    QObject::connect(&session, &ChatSession::visionRefusalPosted, &loop, [&] {
        writeOut(ChatSession::VisionRefusal);
        loop.quit();
    });
    session.setInputText(options.question);
    session.sendMessage();
    loop.exec();
    return status;
}

} // namespace

int Cli::ask(const QStringList &args)
{
    AskOptions options;
    if (const std::optional<int> status = parse(args, options))
        return *status;
    return runAsk(options);
}
