#include "ChatScreenState.h"

#include "Chat/ChatSession.h"

ChatScreenState::ChatScreenState(QObject *parent)
    : QObject(parent)
{
}

void ChatScreenState::setSession(ChatSession *session)
{
    if (m_session == session)
        return;
    for (const QMetaObject::Connection &c : std::as_const(m_connections))
        disconnect(c);
    m_connections.clear();
    m_session = session;
    if (session) {
        MessageListModel *messages = session->messages();
        const auto changed = [this] {
            updateThinkingIndicator();
            emit conversationChanged();
        };
        m_connections = {
            connect(session, &ChatSession::isLoadingChanged, this, &ChatScreenState::updateThinkingIndicator),
            connect(messages, &QAbstractItemModel::rowsInserted, this, changed),
            connect(messages, &QAbstractItemModel::rowsRemoved, this, changed),
            connect(messages, &QAbstractItemModel::modelReset, this, changed),
            connect(messages, &QAbstractItemModel::dataChanged, this, changed),
        };
    }
    updateThinkingIndicator();
    emit sessionChanged();
}

bool ChatScreenState::lastMessageIsUser() const
{
    return m_session && !m_session->messages()->isEmpty() && m_session->messages()->last().isUser();
}

void ChatScreenState::updateThinkingIndicator()
{
    const bool shows = m_session && m_session->isLoading() && lastMessageIsUser();
    if (shows == m_showsThinkingIndicator)
        return;
    m_showsThinkingIndicator = shows;
    emit showsThinkingIndicatorChanged();
}

void ChatScreenState::reportEndMarker(qreal markerY, qreal visibleHeight)
{
    if (!m_session)
        return;
    const bool atBottom = markerY <= visibleHeight + BottomSlack;
    if (atBottom != m_session->isAtBottom())
        m_session->setAtBottom(atBottom);
}

bool ChatScreenState::shouldFollowEnd() const
{
    // A reader who scrolled up is left alone while an answer streams, but their own new message brings
    // them down.
    return m_session && (m_session->isAtBottom() || lastMessageIsUser());
}

bool ChatScreenState::acceptsDrag(const QList<QUrl> &urls) const
{
    return std::any_of(urls.cbegin(), urls.cend(), [](const QUrl &url) { return url.isLocalFile(); });
}

bool ChatScreenState::handleDrop(const QList<QUrl> &urls)
{
    for (const QUrl &url : urls) {
        if (!url.isLocalFile() || !m_session)
            continue;
        QMetaObject::invokeMethod(
            m_session,
            [session = m_session, url] {
                if (session)
                    session->addAttachment(url);
            },
            Qt::QueuedConnection);
    }
    return true;
}

void ChatScreenState::removePendingAttachment(const QString &id)
{
    if (!m_session)
        return;
    const QUuid uuid(id);
    const QList<Attachment> &pending = m_session->pendingAttachments()->list();
    for (qsizetype row = pending.size() - 1; row >= 0; --row) {
        if (pending.at(row).id() == uuid)
            m_session->removePendingAttachment(int(row));
    }
}
