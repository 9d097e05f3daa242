#pragma once

#include <string>
#include <vector>

// What the configurator asks of a new certificate, read from its command line
//   -CN=.. -O=.. -OU=.. -ST=.. -L=.. -C=.. -DNS=a,b -IP=1.2.3.4 -size=2048
//   -alg=Sha256 -val=1825 -der=<folder> -pem=<folder>
// The configurator does not quote the values, so a value with blanks arrives
// as several words: a word that starts no option continues the previous value.
class CertificateOptions
{
public:
    // Fills the options from argv; false with a message in error on bad input.
    bool Parse(int argc, const char* const* argv, std::string& error);

    static const char* Usage();

    std::string commonName;
    std::string organization;
    std::string organizationUnit;
    std::string state;
    std::string locality;
    std::string country;
    std::vector<std::string> dnsNames;
    // Binary addresses, 4 bytes for IPv4 and 16 for IPv6.
    std::vector<std::string> ipAddresses;
    int keyBits = 2048;
    std::string hash = "Sha256";
    int validityDays = 365;
    std::string derFolder;
    std::string pemFolder;

private:
    bool Assign(const std::string& key, const std::string& value, std::string& error);
};
