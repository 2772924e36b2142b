#pragma once

#include "Core/ProviderError.h"

#include <QByteArray>
#include <QPointer>
#include <QStringList>

#include <qcoro/qcorotask.h>

#include <memory>
#include <variant>

class AppSettings;
class InfomaniakAPI;

// The models a user's own server offers, added to the picker after the catalogue.
namespace ServerModels {

// The "id" of every element of "data" in an OpenAI list answer, in order, each once. An answer without such
// a list is an error of domain "ModelList".
std::variant<QStringList, ProviderError> decode(const QByteArray &body);

// Asks the server once for its models and offers them in `settings`; a server without a list (or with an
// empty one) leaves the picker as it is. Either way one console line tells what happened.
QCoro::Task<> offer(std::shared_ptr<const InfomaniakAPI> api, QPointer<AppSettings> settings);

} // namespace ServerModels
