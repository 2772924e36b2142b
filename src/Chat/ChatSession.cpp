#include "ChatSession.h"

#include "AppSettings.h"
#include "Core/Console.h"
#include "Core/Notifier.h"
#include "Services/ContextManager.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QTimer>
#include <QtConcurrent>

#include <qcoro/qcorofuture.h>

namespace {

// The last path component, also for a folder given with a closing slash.
QString lastComponent(const QUrl &url)
{
    QString path = url.path();
    while (path.size() > 1 && path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return QFileInfo(path).fileName();
}

bool hasImageExtension(const QUrl &url)
{
    static const QRegularExpression imageExtension(QStringLiteral("png|jpg|jpeg|webp"));
    return imageExtension.match(QFileInfo(lastComponent(url)).suffix().toLower()).hasMatch();
}

// Started outside the coroutine: g++ 12 mishandles lambdas that capture a coroutine's locals.
QFuture<ImageRef> loadInBackground(const QString &path)
{
    return QtConcurrent::run([path] { return ImageData::load(path); });
}

} // namespace

ChatSession::ChatSession(ContextManager &contextManager, AppSettings &settings, QObject *parent)
    : QObject(parent)
    , m_contextManager(contextManager)
    , m_settings(settings)
{
    connect(&Notifier::instance(), &Notifier::posted, this, [this](const QString &name) {
        if (name == Notifier::ClearChatMemory)
            clearMessages();
    });
    connect(&m_pending, &AttachmentListModel::countChanged, this, &ChatSession::canSendChanged);
}

ChatSession::~ChatSession()
{
    if (m_streamingTask)
        m_streamingTask->cancel();
}

void ChatSession::setInputText(const QString &text)
{
    if (text == m_inputText)
        return;
    const bool couldSend = canSend();
    m_inputText = text;
    emit inputTextChanged();
    if (couldSend != canSend())
        emit canSendChanged();
}

void ChatSession::setDragging(bool dragging)
{
    if (dragging == m_isDragging)
        return;
    m_isDragging = dragging;
    emit isDraggingChanged();
}

void ChatSession::setAtBottom(bool atBottom)
{
    if (atBottom == m_isAtBottom)
        return;
    m_isAtBottom = atBottom;
    emit isAtBottomChanged();
}

void ChatSession::setLoading(bool loading)
{
    if (loading == m_isLoading)
        return;
    const bool couldSend = canSend();
    m_isLoading = loading;
    emit isLoadingChanged();
    if (couldSend != canSend())
        emit canSendChanged();
}

QString ChatSession::currentModel() const
{
    return m_modelOverride.value_or(m_settings.selectedModel());
}

QString ChatSession::currentPrompt() const
{
    return m_promptOverride.value_or(m_settings.masterPrompt());
}

void ChatSession::appendMessage(const Message &message)
{
    m_messages.append(message);
}

void ChatSession::sendMessage()
{
    // While an answer streams, Return and the send button leave the typed text where it is.
    if (m_isLoading || (m_inputText.isEmpty() && m_pending.size() == 0))
        return;

    const bool sendsImages = std::any_of(m_pending.list().cbegin(), m_pending.list().cend(),
                                         [](const Attachment &a) { return a.type().isImage(); });
    if (sendsImages) {
        const auto &catalogue = AppSettings::modelMetadata();
        const auto model = catalogue.constFind(currentModel());
        if (model != catalogue.constEnd() && !model->supportsVision) {
            m_messages.append(Message(m_inputText, true, m_pending.list()));
            setInputText(QString());
            m_pending.takeAll();
            QTimer::singleShot(VisionRefusalDelayMs, this, [this] {
                m_messages.append(Message(VisionRefusal, false));
                emit visionRefusalPosted();
            });
            return;
        }
    }

    const QString text = m_inputText;
    const QList<Attachment> attachments = m_pending.list();
    m_messages.append(Message(text, true, attachments));

    QList<HistoryEntry> history;
    const QList<Message> &all = m_messages.list();
    for (qsizetype i = 0; i + 1 < all.size(); ++i)
        history.append(
            {all[i].isUser() ? QStringLiteral("user") : QStringLiteral("assistant"), all[i].text()});

    setInputText(QString());
    m_pending.takeAll();
    setLoading(true);

    // The turn starts from the event loop, as a task would: the screen shows the user's message first.
    auto cancelled = std::make_shared<bool>(false);
    m_streamingCancelled = cancelled;
    m_streamingTask = nullptr;
    const int turn = ++m_turn;
    QTimer::singleShot(0, this, [this, text, attachments, history, cancelled, turn] {
        // The answer's message comes with every turn, also one stopped before it began.
        m_messages.append(Message(QString(), false));
        if (*cancelled)
            return finishTurn(turn, false, QString());
        auto stream = m_contextManager.api().sendStreamingMessage(
            text, attachments, m_contextManager.globalChunks(), currentModel(), currentPrompt(), history);
        if (turn == m_turn)
            m_streamingTask = stream;
        runTurn(std::move(stream), cancelled, turn);
    });
}

QCoro::Task<> ChatSession::runTurn(std::shared_ptr<ChatStream> stream, std::shared_ptr<bool> cancelled,
                                   int turn)
{
    QPointer<ChatSession> self(this);
    bool failed = false;
    QString description;
    for (;;) {
        const ChatStream::Item item = co_await stream->next();
        if (!self)
            co_return;
        if (*cancelled)
            break;
        if (item.kind == ChatStream::Item::Kind::Pieces) {
            // Pieces that came together are shown together: one update of the message, not one per piece.
            const QString &text = item.pieces.text;
            if (!m_messages.isEmpty()) {
                m_messages.appendToLast(text);
                emit pieceAppended(text);
            }
            continue;
        }
        if (item.kind == ChatStream::Item::Kind::Error) {
            failed = true;
            description = item.error.description;
            Console::line(QStringLiteral("Error sending message: ") + description);
            if (!m_messages.isEmpty()) {
                const QString note = QStringLiteral("\n[Fehler: ") + description + QLatin1Char(']');
                m_messages.appendToLast(note);
                emit pieceAppended(note);
            }
        }
        break;
    }
    finishTurn(turn, failed, description);
}

void ChatSession::finishTurn(int turn, bool failed, const QString &description)
{
    if (turn != m_turn)
        return;
    setLoading(false);
    m_streamingTask = nullptr;
    m_streamingCancelled = nullptr;
    emit turnFinished(failed, description);
}

void ChatSession::cancelStreaming()
{
    if (m_streamingCancelled)
        *m_streamingCancelled = true;
    if (m_streamingTask)
        m_streamingTask->cancel();
    m_streamingTask = nullptr;
    m_streamingCancelled = nullptr;
    setLoading(false);
}

void ChatSession::addAttachment(const QUrl &url)
{
    addAttachmentAsync(url);
}

QCoro::Task<> ChatSession::addAttachmentAsync(QUrl url)
{
    QPointer<ChatSession> self(this);
    ImageRef image;
    if (hasImageExtension(url)) {
        const QString path = url.toLocalFile();
        // Named, not a temporary: g++ 12 destroys temporaries inside a co_await expression twice.
        QFuture<ImageRef> loading = loadInBackground(path);
        image = co_await loading;
        if (!self)
            co_return;
    }
    if (image) {
        const Attachment attachment(AttachmentType::image(std::move(image)));
        m_previews->insert(attachment.id(), attachment.type().imageData()->preview());
        m_pending.append(attachment);
    } else {
        m_pending.append(Attachment(AttachmentType::document(url, lastComponent(url))));
    }
}

void ChatSession::removePendingAttachment(int index)
{
    if (index < 0 || index >= m_pending.size())
        return;
    m_previews->remove(m_pending.list().at(index).id());
    m_pending.removeAt(index);
}

void ChatSession::clearMessages()
{
    m_messages.clear();
    QSet<QUuid> pending;
    for (const Attachment &a : m_pending.list())
        pending.insert(a.id());
    m_previews->keepOnly(pending);
}
