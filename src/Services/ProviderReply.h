#pragma once

#include "Core/ProviderError.h"

#include <QByteArray>
#include <QObject>

#include <memory>
#include <optional>

class QNetworkReply;

// How the provider client reads the outcome of one of its HTTP replies, the same for the chat turn and the
// embeddings call.
namespace ProviderReply {

// A reply held by the call that awaits it. The call resumes inside the reply's own finished signal (or its
// abort), where the reply may not be deleted outright.
struct LaterDeleter {
    void operator()(QObject *object) const { object->deleteLater(); }
};
using Owned = std::unique_ptr<QNetworkReply, LaterDeleter>;

// The status of the answer the reply ended on. A redirect that Qt follows (or refuses) is no answer of its
// own: its status is passed over, and so is a reply that has not seen a final head or is not HTTP.
std::optional<int> finalStatus(const QNetworkReply &reply);

// The reply's failure as the caller reports it: the transport's own error, except that the inactivity
// time-out reads as a time-out rather than as a cancel.
ProviderError transportError(const QNetworkReply &reply);

// What is left of the body; nothing once the reply has been closed (an aborted reply reads nothing).
QByteArray readRest(QNetworkReply &reply);

} // namespace ProviderReply
