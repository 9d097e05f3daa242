#pragma once

#include "tools/certificateoptions.h"

#include <string>

// Makes a self-signed OPC UA application certificate and its RSA key and
// writes them as <der folder>/server_cert.der and <pem folder>/server_key.pem.
class CertificateWriter
{
public:
    enum Result
    {
        Done = 0,
        CannotWrite = 3,
        GenerationFailed = 4,
    };

    static constexpr const char* kApplicationUri = "urn:tarnopcua.server.application";
    static constexpr const char* kCertificateName = "server_cert.der";
    static constexpr const char* kKeyName = "server_key.pem";

    Result Write(const CertificateOptions& options, std::string& error);

    std::string certificatePath;
    std::string keyPath;
};
