#pragma once

#include "server/serverlog.h"

#include <cstdint>
#include <string>

// The seven start arguments, in the order the configurator passes them:
// configuration, port, log level word, anonymous access, certificate (DER),
// private key (PEM), folder of trusted client certificates. A service starts
// the gateway with "--from-file CONFIG" instead, and the other six come from
// the parameter block that the start dialog saved in CONFIG.
class CServerOptions
{
public:
    enum Result
    {
        Ok,
        Help,
        Bad
    };

    Result Parse(int argc, const char* const* argv, std::string& error);
    static std::string Usage(const std::string& program);

    bool Secure() const { return !certificatePath.empty() && !privateKeyPath.empty(); }

    std::string configPath;
    std::uint16_t port = 4840;
    CServerLog::Level logLevel = CServerLog::Warning;
    bool allowAnonymous = true;
    std::string certificatePath;
    std::string privateKeyPath;
    std::string trustFolder;

private:
    Result ParseFromFile(const std::string& path, std::string& error);
};
