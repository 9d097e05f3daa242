#include "server/gatewayserver.h"
#include "server/serveroptions.h"

#include <csignal>
#include <cstdio>
#include <iostream>

namespace {

// Exit statuses: the service restarts the gateway after a failure, but not
// after a refusal of its arguments or its configuration (the unit's
// RestartPreventExitStatus), which a restart would meet again.
const int kFailed = 1;
const int kRefused = 2;

volatile std::sig_atomic_t g_stop = 0;

void OnSignal(int)
{
    // The interrupted wait of the event loop is reported by the library as a warning.
    CServerLog::QuietLibrary(true);
    g_stop = 1;
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
        return kRefused;
    case CServerOptions::Ok:
        break;
    }

    // No SA_RESTART, so the event loop's wait ends at once on a signal.
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    CGatewayServer server(options);
    if (!server.Start(error)) {
        CServerLog::Write(CServerLog::Fatal, error);
        std::cerr << argv[0] << ": " << error << "\n";
        return server.ConfigurationRefused() ? kRefused : kFailed;
    }
    while (!g_stop)
        server.Iterate();
    server.Stop();
    return 0;
}
