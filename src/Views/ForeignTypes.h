#pragma once

#include "AppSettings.h"
#include "Chat/AttachmentListModel.h"
#include "Chat/ChatSession.h"
#include "Chat/MessageListModel.h"

#include <QQmlEngine>

// The core's objects as typed QML properties; they are made by the app, never by QML.
struct ChatSessionForeign {
    Q_GADGET
    QML_FOREIGN(ChatSession)
    QML_NAMED_ELEMENT(ChatSession)
    QML_UNCREATABLE("made by the application")
};

struct AppSettingsForeign {
    Q_GADGET
    QML_FOREIGN(AppSettings)
    QML_NAMED_ELEMENT(AppSettings)
    QML_UNCREATABLE("made by the application")
};

struct MessageListModelForeign {
    Q_GADGET
    QML_FOREIGN(MessageListModel)
    QML_NAMED_ELEMENT(MessageListModel)
    QML_UNCREATABLE("owned by the chat session")
};

struct AttachmentListModelForeign {
    Q_GADGET
    QML_FOREIGN(AttachmentListModel)
    QML_NAMED_ELEMENT(AttachmentListModel)
    QML_UNCREATABLE("owned by the chat session")
};
