#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QQmlEngine>
#include <QUrl>

#include "Chat/ChatSession.h"

// The chat screen's rules, kept out of QML: when the thinking indicator shows, where the conversation
// scrolls and whether it counts as scrolled to its end, what a screen reader is told, and which drags and
// drops are taken.
//
// Following the end: when the texts change while the list is at its end (or the user just sent), the
// list is pinned to its end. A pinned list stays at the end through every later layout pass (bubbles
// measure their text a moment after it changed, a piece may add any height), until the reader scrolls
// it away.
class ChatScreenState : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(ChatSession *session READ session WRITE setSession NOTIFY sessionChanged)
    Q_PROPERTY(bool showsThinkingIndicator READ showsThinkingIndicator NOTIFY showsThinkingIndicatorChanged)
    Q_PROPERTY(bool pinnedToEnd READ isPinnedToEnd NOTIFY pinnedToEndChanged)
    Q_PROPERTY(QString announcement READ announcement NOTIFY announcementChanged)
    Q_PROPERTY(int streamingRow READ streamingRow NOTIFY streamingRowChanged)

public:
    // How far below the visible area the end may lie and still count as "at the end".
    static constexpr qreal BottomSlack = 50;

    // Where the list stands: all in the list's content coordinates except the visible height.
    struct Layout {
        qreal contentY = 0;
        qreal contentHeight = 0;
        qreal markerTop = 0;    // the end marker's top
        qreal markerBottom = 0; // the end marker's bottom
        qreal visibleHeight = 0;
    };

    explicit ChatScreenState(QObject *parent = nullptr);

    ChatSession *session() const { return m_session; }
    void setSession(ChatSession *session);
    bool showsThinkingIndicator() const { return m_showsThinkingIndicator; }
    bool isPinnedToEnd() const { return m_pinned; }
    // The last finished answer, for screen readers; empty while an answer streams.
    QString announcement() const { return m_announcement; }
    // The row of the answer that is streaming in, or -1.
    int streamingRow() const { return m_streamingRow; }

    // The list's layout after any change of it. `following` tells that the list is on its way to the end
    // requested by `scrollToEnd`, so its moves are not the reader's.
    Q_INVOKABLE void reportLayout(qreal contentY, qreal contentHeight, qreal markerTop, qreal markerBottom,
                                  qreal visibleHeight, bool following);
    // The reader scrolls the list (wheel, scroll bar) or has stopped doing so. While they scroll, the list
    // is theirs; where they leave it decides whether it is pinned to the end again.
    Q_INVOKABLE void readerScrolling(bool scrolling);
    // Where the list stands when its end marker's bottom touches the bottom of the visible area.
    static qreal endPosition(const Layout &layout);
    // The gap between the end marker's bottom and the bottom of the visible area (0 or less: in view).
    static qreal gapBelow(const Layout &layout);

    // Escape: stops a streaming answer. Returns whether it did anything.
    Q_INVOKABLE bool escapePressed();

    // Drags are taken only when they carry at least one local file.
    Q_INVOKABLE bool acceptsDrag(const QList<QUrl> &urls) const;
    // Hands each dropped local file to the session, on the main thread after the drop returns; the drop
    // is always reported as taken.
    Q_INVOKABLE bool handleDrop(const QList<QUrl> &urls);
    // Removes the pending attachment with this id.
    Q_INVOKABLE void removePendingAttachment(const QString &id);

signals:
    void sessionChanged();
    void showsThinkingIndicatorChanged();
    void pinnedToEndChanged();
    void announcementChanged();
    void streamingRowChanged();
    // Move the list to `contentY`: at once the first time it is laid out, animated afterwards.
    void scrollToEnd(qreal contentY, bool animated);
    // The reader took the list over while it was on its way to the end: stop the way there.
    void stopFollowing();

private:
    void conversationChanged();
    void loadingChanged();
    void announceLastAnswer();
    void updateThinkingIndicator();
    void updateStreamingRow();
    bool lastMessageIsUser() const;
    void setPinned(bool pinned);
    void followEnd();
    void updateAtBottom();
    void setAnnouncement(const QString &text);

    QPointer<ChatSession> m_session;
    QList<QMetaObject::Connection> m_connections;
    bool m_showsThinkingIndicator = false;
    int m_streamingRow = -1;

    Layout m_layout;
    bool m_laidOut = false; // a layout with a visible height was reported
    bool m_pinned = true;   // the list starts at its end
    bool m_jumping = false; // inside a move requested without animation
    bool m_readerScrolling = false;
    bool m_targetValid = false; // an animated move to m_target is under way
    qreal m_target = 0;

    QString m_announcement;
};
