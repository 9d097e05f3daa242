#pragma once

// How the gateway ends. The service unit restarts it after a failure, but not
// after a configuration error: the same files would be refused again.
namespace GatewayExit {
constexpr int kStopped = 0;
constexpr int kFailure = 1;
constexpr int kConfigurationError = 2;
} // namespace GatewayExit
