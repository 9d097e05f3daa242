#include "server/exitstatus.h"
#include "server/gatewayserver.h"
#include "server/serveroptions.h"

#include <csignal>
#include <cstdio>
#include <iostream>
#include <unistd.h>

namespace {

// How long an orderly stop may take before the process just ends.
const unsigned kStopSeconds = 2;

volatile std::sig_atomic_t g_stop = 0;

void OnSignal(int)
{
    // The interrupted wait of the event loop is reported by the library as a warning.
    CServerLog::QuietLibrary(true);
    g_stop = 1;
    alarm(kStopSeconds);
}

void OnStopOverdue(int)
{
    _exit(GatewayExit::kStopped);
}

} // namespace

int main(int argc, char** argv)
{
    CServerOptions options;
    std::string error;
    switch (options.Parse(argc, argv, error)) {
    case CServerOptions::Help:
        std::cout << CServerOptions::Usage(argv[0]);
        return 0;
    case CServerOptions::Bad:
        std::cerr << argv[0] << ": " << error << "\n" << CServerOptions::Usage(argv[0]);
        return GatewayExit::kConfigurationError;
    case CServerOptions::Ok:
        break;
    }
    std::signal(SIGPIPE, SIG_IGN);

    // Until the server runs, SIGTERM and SIGINT keep their default and end the
    // start at once, whatever it is busy with; afterwards they stop it in order.
    CGatewayServer server(options);
    if (!server.Start(error)) {
        CServerLog::Write(CServerLog::Fatal, error);
        std::cerr << argv[0] << ": " << error << "\n";
        return server.FailureStatus();
    }
    // No SA_RESTART, so the event loop's wait ends at once on a signal.
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    action.sa_handler = OnStopOverdue;
    sigaction(SIGALRM, &action, nullptr);
    while (!g_stop)
        server.Iterate();
    server.Stop();
    return GatewayExit::kStopped;
}
