#include "ProviderReply.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <algorithm>
#include <array>

namespace {

// The statuses Qt's HTTP client follows on its own unless told not to.
bool isFollowedRedirect(const QNetworkReply &reply, int status)
{
    static constexpr std::array Redirects{301, 302, 303, 305, 307, 308};
    if (std::find(Redirects.begin(), Redirects.end(), status) == Redirects.end())
        return false;
    const QVariant policy = reply.request().attribute(QNetworkRequest::RedirectPolicyAttribute);
    const int followed = policy.isValid()  ? policy.toInt()
                         : reply.manager() ? int(reply.manager()->redirectPolicy())
                                           : int(QNetworkRequest::NoLessSafeRedirectPolicy);
    return followed != QNetworkRequest::ManualRedirectPolicy;
}

} // namespace

std::optional<int> ProviderReply::finalStatus(const QNetworkReply &reply)
{
    const QVariant status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid())
        return std::nullopt;
    // Qt either follows such a redirect, and the next head replaces this one, or fails the reply with a
    // redirect error of the transport.
    if (isFollowedRedirect(reply, status.toInt()))
        return std::nullopt;
    return status.toInt();
}

ProviderError ProviderReply::transportError(const QNetworkReply &reply)
{
    const QNetworkReply::NetworkError error = reply.error();
    // The client aborts a reply only after it has stopped reading it, so a cancelled operation that is
    // read here was ended by the request's inactivity time-out.
    if (error == QNetworkReply::OperationCanceledError || error == QNetworkReply::TimeoutError)
        return {QStringLiteral("QNetworkReply"), int(QNetworkReply::TimeoutError),
                QStringLiteral("The request timed out.")};
    return {QStringLiteral("QNetworkReply"), int(error), reply.errorString()};
}

QByteArray ProviderReply::readRest(QNetworkReply &reply)
{
    if (!reply.isOpen())
        return {};
    return reply.readAll();
}
