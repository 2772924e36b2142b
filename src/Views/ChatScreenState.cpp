#include "ChatScreenState.h"

#include "Chat/ChatSession.h"

#include <algorithm>
#include <cmath>

namespace {

// Positions closer than this are the same place on the screen.
constexpr qreal SamePlace = 0.5;
// The smallest move of the list that counts as the reader's.
constexpr qreal ReaderStep = 1;

} // namespace

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
        const auto changed = [this] { conversationChanged(); };
        m_connections = {
            connect(session, &ChatSession::isLoadingChanged, this, &ChatScreenState::loadingChanged),
            connect(session, &ChatSession::visionRefusalPosted, this, &ChatScreenState::announceLastAnswer),
            connect(messages, &QAbstractItemModel::rowsInserted, this, changed),
            connect(messages, &QAbstractItemModel::rowsRemoved, this, changed),
            connect(messages, &QAbstractItemModel::modelReset, this, changed),
            connect(messages, &QAbstractItemModel::dataChanged, this, changed),
        };
    }
    updateThinkingIndicator();
    updateStreamingRow();
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

void ChatScreenState::updateStreamingRow()
{
    const int row =
        m_session && m_session->isLoading() && !m_session->messages()->isEmpty() && !lastMessageIsUser()
            ? m_session->messages()->size() - 1
            : -1;
    if (row == m_streamingRow)
        return;
    m_streamingRow = row;
    emit streamingRowChanged();
}

void ChatScreenState::conversationChanged()
{
    updateThinkingIndicator();
    updateStreamingRow();
    // A reader who scrolled up is left alone while an answer streams, but their own new message brings
    // them down. The decision is taken now, before the list lays out the new text.
    if (m_session && ((m_session->isAtBottom() && !m_readerScrolling) || lastMessageIsUser())) {
        setPinned(true);
        followEnd();
        updateAtBottom();
    }
}

void ChatScreenState::loadingChanged()
{
    updateThinkingIndicator();
    updateStreamingRow();
    // A screen reader hears the answer once, whole, when it has ended; never piece by piece.
    if (m_session && m_session->isLoading())
        setAnnouncement(QString());
    else
        announceLastAnswer();
}

void ChatScreenState::announceLastAnswer()
{
    setAnnouncement(QString());
    const MessageListModel *messages = m_session ? m_session->messages() : nullptr;
    if (messages && !messages->isEmpty() && !messages->last().isUser())
        setAnnouncement(messages->last().text());
}

void ChatScreenState::setAnnouncement(const QString &text)
{
    if (m_announcement == text)
        return;
    m_announcement = text;
    emit announcementChanged();
}

qreal ChatScreenState::endPosition(const Layout &layout)
{
    const qreal furthest = std::max<qreal>(0, layout.contentHeight - layout.visibleHeight);
    return std::clamp<qreal>(layout.markerBottom - layout.visibleHeight, 0, furthest);
}

qreal ChatScreenState::gapBelow(const Layout &layout)
{
    return layout.markerBottom - (layout.contentY + layout.visibleHeight);
}

void ChatScreenState::reportLayout(qreal contentY, qreal contentHeight, qreal markerTop, qreal markerBottom,
                                   qreal visibleHeight, bool following)
{
    const qreal step = contentY - m_layout.contentY;
    // The scroll bar rounds the position when the content grows; a reader moves by whole points.
    const bool moved = m_laidOut && std::abs(step) >= ReaderStep;
    m_layout = {contentY, contentHeight, markerTop, markerBottom, visibleHeight};
    if (!following)
        m_targetValid = false;
    // A move that is not ours is the reader's (or the list keeping inside shorter content): the list
    // stays pinned only if it still ends at its end.
    if (moved && !following && !m_jumping)
        setPinned(gapBelow(m_layout) <= SamePlace);
    if (visibleHeight > 0 && !m_laidOut) {
        m_laidOut = true;
        if (m_pinned) {
            const qreal target = endPosition(m_layout);
            if (std::abs(target - contentY) >= SamePlace) {
                m_jumping = true;
                emit scrollToEnd(target, false);
                m_jumping = false;
            }
        }
    }
    if (m_pinned)
        followEnd();
    updateAtBottom();
}

void ChatScreenState::readerScrolling(bool scrolling)
{
    if (m_readerScrolling == scrolling)
        return;
    m_readerScrolling = scrolling;
    if (scrolling) {
        // The reader takes the list: no glide to the end may fight the wheel or the scroll bar.
        m_targetValid = false;
        emit stopFollowing();
        setPinned(false);
    } else {
        setPinned(m_laidOut && gapBelow(m_layout) <= SamePlace);
    }
    updateAtBottom();
}

void ChatScreenState::followEnd()
{
    if (!m_laidOut || m_jumping)
        return;
    const qreal target = endPosition(m_layout);
    const qreal from = m_targetValid ? m_target : m_layout.contentY;
    if (std::abs(target - from) < SamePlace)
        return;
    m_target = target;
    m_targetValid = true;
    emit scrollToEnd(target, true);
}

void ChatScreenState::setPinned(bool pinned)
{
    if (m_pinned == pinned)
        return;
    m_pinned = pinned;
    emit pinnedToEndChanged();
}

void ChatScreenState::updateAtBottom()
{
    if (!m_session || !m_laidOut)
        return;
    // A pinned list counts where it is going, not where an animation or a pending layout left it.
    const qreal position = m_pinned ? endPosition(m_layout) : m_layout.contentY;
    const bool atBottom = m_layout.markerTop - position <= m_layout.visibleHeight + BottomSlack;
    if (atBottom != m_session->isAtBottom())
        m_session->setAtBottom(atBottom);
}

bool ChatScreenState::escapePressed()
{
    if (!m_session || !m_session->isLoading())
        return false;
    m_session->cancelStreaming();
    return true;
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
