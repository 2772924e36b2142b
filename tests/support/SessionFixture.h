#pragma once

#include "AppSettings.h"
#include "Chat/ChatSession.h"
#include "ProviderClient.h"
#include "Services/ContextManager.h"
#include "TestProvider.h"

#include <QSignalSpy>

#include <qcoro/qcorotask.h>

#include <memory>

// One app's worth of objects, made as the app makes them, talking to a loopback provider.
struct SessionFixture {
    TestProvider provider;
    std::shared_ptr<const InfomaniakAPI> api;
    AppSettings settings;
    std::unique_ptr<ContextManager> knowledge;
    std::unique_ptr<ChatSession> session;

    SessionFixture()
    {
        if (!provider.listen())
            qFatal("cannot listen");
        api = clientFor(provider);
        knowledge = std::make_unique<ContextManager>(api);
        session = std::make_unique<ChatSession>(*knowledge, settings);
    }

    const QList<Message> &messages() const { return session->messages()->list(); }
    void send(const QString &text)
    {
        session->setInputText(text);
        session->sendMessage();
    }
    bool waitForTurn()
    {
        QSignalSpy finished(session.get(), &ChatSession::turnFinished);
        return finished.wait(10000);
    }
    void attach(const QString &path)
    {
        QCoro::waitFor(session->addAttachmentAsync(QUrl::fromLocalFile(path)));
    }
};
