#pragma once

#include "Chat/AttachmentListModel.h"
#include "Chat/AttachmentPreviews.h"
#include "Chat/MessageListModel.h"
#include "Models/Attachment.h"
#include "Models/Message.h"

#include <QObject>
#include <QPointer>
#include <QUrl>

#include <qcoro/qcorotask.h>

#include <memory>
#include <optional>

class AppSettings;
class ChatStream;
class ContextManager;
struct HistoryEntry;

// The state and actions behind the chat screen: the conversation, the text being typed, the attachments
// waiting to be sent and the one answer that may be streaming. Everything here runs on the main thread.
class ChatSession : public QObject {
    Q_OBJECT
    Q_PROPERTY(MessageListModel *messages READ messages CONSTANT)
    Q_PROPERTY(AttachmentListModel *pendingAttachments READ pendingAttachments CONSTANT)
    Q_PROPERTY(QString inputText READ inputText WRITE setInputText NOTIFY inputTextChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(bool isDragging READ isDragging WRITE setDragging NOTIFY isDraggingChanged)
    Q_PROPERTY(bool isAtBottom READ isAtBottom WRITE setAtBottom NOTIFY isAtBottomChanged)
    Q_PROPERTY(bool canSend READ canSend NOTIFY canSendChanged)

public:
    static inline const QString VisionRefusal = QStringLiteral(
        "Entschuldigung, ich kann mit dem aktuellen Modell leider keine Bilder sehen. 🙈\n\nBitte wähle in "
        "den "
        "Einstellungen das **Qwen Vision Modell** (qwen3), wenn du mir Bilder zeigen möchtest.");
    static constexpr int VisionRefusalDelayMs = 500;

    ChatSession(ContextManager &contextManager, AppSettings &settings, QObject *parent = nullptr);
    ~ChatSession() override;

    MessageListModel *messages() { return &m_messages; }
    AttachmentListModel *pendingAttachments() { return &m_pending; }
    QString inputText() const { return m_inputText; }
    void setInputText(const QString &text);
    bool isLoading() const { return m_isLoading; }
    bool isDragging() const { return m_isDragging; }
    void setDragging(bool dragging);
    bool isAtBottom() const { return m_isAtBottom; }
    void setAtBottom(bool atBottom);
    // The send button's rule: something to send, and no answer streaming (a second turn would write into
    // the same message as the first).
    bool canSend() const { return !m_isLoading && (!m_inputText.isEmpty() || m_pending.size() > 0); }

    // For a single turn (the command-line companion): these replace the stored settings when set.
    void setModelOverride(const std::optional<QString> &model) { m_modelOverride = model; }
    void setPromptOverride(const std::optional<QString> &prompt) { m_promptOverride = prompt; }
    // Seeds the conversation with earlier messages (the command-line companion's --history).
    void appendMessage(const Message &message);

    Q_INVOKABLE void sendMessage();
    Q_INVOKABLE void cancelStreaming();
    // Classifies the file (image by extension and content, else document) and appends it to the pending list.
    Q_INVOKABLE void addAttachment(const QUrl &url);
    // The same, finishing when the attachment has been appended. Pictures are checked off the main thread.
    QCoro::Task<> addAttachmentAsync(QUrl url);
    Q_INVOKABLE void removePendingAttachment(int index);
    // Empties the conversation; nothing else is reset.
    Q_INVOKABLE void clearMessages();

    // The preview pictures of the pending and sent image attachments, for views that load them on another
    // thread; shared, so it outlives the session as long as a view holds it.
    std::shared_ptr<const AttachmentPreviews> previews() const { return m_previews; }

signals:
    void inputTextChanged();
    void isLoadingChanged();
    void isDraggingChanged();
    void isAtBottomChanged();
    void canSendChanged();
    // Text of the answer was appended to the last message (the pieces that arrived together).
    void pieceAppended(const QString &piece);
    // A turn ended: normally, cancelled, or with an error (then `errorDescription` is set).
    void turnFinished(bool failed, const QString &errorDescription);
    // The canned reply for a model without vision was posted.
    void visionRefusalPosted();

private:
    QCoro::Task<> runTurn(std::shared_ptr<ChatStream> stream, std::shared_ptr<bool> cancelled, int turn);
    void finishTurn(int turn, bool failed, const QString &description);
    void setLoading(bool loading);
    QString currentModel() const;
    QString currentPrompt() const;

    ContextManager &m_contextManager;
    AppSettings &m_settings;
    MessageListModel m_messages;
    AttachmentListModel m_pending;
    QString m_inputText;
    bool m_isLoading = false;
    bool m_isDragging = false;
    bool m_isAtBottom = true;
    std::shared_ptr<ChatStream> m_streamingTask;
    std::shared_ptr<bool> m_streamingCancelled;
    int m_turn = 0; // the newest turn; an older one ending must not stop the newer one's display
    std::optional<QString> m_modelOverride;
    std::optional<QString> m_promptOverride;
    std::shared_ptr<AttachmentPreviews> m_previews = std::make_shared<AttachmentPreviews>();
};
