#pragma once

namespace NetworkShutdown {

// Deletes the process's network manager and runs the clean-up its connection thread hands back, while the
// event loop can still take it; for programs that end right after their last request.
void closeConnections();

} // namespace NetworkShutdown
