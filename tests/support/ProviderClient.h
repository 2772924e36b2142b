#pragma once

#include "Services/InfomaniakAPI.h"
#include "TestProvider.h"

#include <memory>

// A provider client made the way the app makes it, from the environment, but aimed at the loopback provider.
inline std::shared_ptr<const InfomaniakAPI> clientFor(const TestProvider &provider,
                                                      int transferTimeoutMs = 60000)
{
    qputenv("QUILLMOOR_API_BASE_URL", provider.baseUrl().toString().toUtf8());
    qputenv("QUILLMOOR_API_KEY", "test-key");
    InfomaniakAPI api = InfomaniakAPI::fromEnvironment();
    api.setTransferTimeoutMs(transferTimeoutMs);
    return std::make_shared<const InfomaniakAPI>(api);
}
