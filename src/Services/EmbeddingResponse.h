#pragma once

#include "Core/ProviderError.h"

#include <QByteArray>
#include <QList>

#include <variant>

// Reading the body of an embeddings answer. Both "data" and every element's "embedding" are required, and a
// vector must hold numbers only: an encoded vector (some providers send base64 strings) is not accepted.
namespace EmbeddingResponse {

// Errors of the reader: domain "QJsonParseError" (code = QJsonParseError::ParseError) when the body is not
// JSON, domain "EmbeddingResponse" (codes below) when it is JSON of another shape.
inline const QString DecodingDomain = QStringLiteral("EmbeddingResponse");
enum DecodingCode { KeyNotFound = 1, TypeMismatch = 2 };

std::variant<QList<QList<double>>, ProviderError> decode(const QByteArray &body);

} // namespace EmbeddingResponse
