#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QQmlEngine>
#include <QUrl>

#include "Chat/ChatSession.h"

// The chat screen's rules, kept out of QML: when the thinking indicator shows, whether the list counts
// as scrolled to its end, whether a change of the conversation pulls the list to the end, and which drags
// and drops are taken.
class ChatScreenState : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(ChatSession *session READ session WRITE setSession NOTIFY sessionChanged)
    Q_PROPERTY(bool showsThinkingIndicator READ showsThinkingIndicator NOTIFY showsThinkingIndicatorChanged)

public:
    // How far below the visible area the end may lie and still count as "at the end".
    static constexpr qreal BottomSlack = 50;

    explicit ChatScreenState(QObject *parent = nullptr);

    ChatSession *session() const { return m_session; }
    void setSession(ChatSession *session);
    bool showsThinkingIndicator() const { return m_showsThinkingIndicator; }

    // The end marker's top, measured from the top of the visible area, and that area's height.
    Q_INVOKABLE void reportEndMarker(qreal markerY, qreal visibleHeight);
    // Whether the conversation that just changed should scroll to its end.
    Q_INVOKABLE bool shouldFollowEnd() const;

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
    // The texts of the conversation changed (a message added or removed, or a piece appended).
    void conversationChanged();

private:
    void updateThinkingIndicator();
    bool lastMessageIsUser() const;

    QPointer<ChatSession> m_session;
    QList<QMetaObject::Connection> m_connections;
    bool m_showsThinkingIndicator = false;
};
