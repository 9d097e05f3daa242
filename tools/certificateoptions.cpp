#include "tools/certificateoptions.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

namespace {

const std::set<std::string> kKeys = {"CN", "O",    "OU",  "ST",  "L",   "C",  "DNS",
                                     "IP", "size", "alg", "val", "der", "pem"};

std::string Trimmed(const std::string& s)
{
    const auto first = s.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return std::string();
    const auto last = s.find_last_not_of(" \t\r\n");
    return s.substr(first, last - first + 1);
}

// The lists are comma-separated; blanks around the commas (or instead of
// them) are tolerated, as neither a host name nor an address holds one.
std::vector<std::string> SplitList(const std::string& s)
{
    std::vector<std::string> items;
    std::string current;
    for (char c : s + ",") {
        if (c == ',' || std::isspace(static_cast<unsigned char>(c))) {
            if (!current.empty())
                items.push_back(current);
            current.clear();
        } else {
            current += c;
        }
    }
    return items;
}

bool ParseInt(const std::string& s, int& out)
{
    if (s.empty() || s.size() > 9 ||
        !std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return false;
    out = std::stoi(s);
    return true;
}

bool ValidDnsName(const std::string& name)
{
    if (name.size() > 253)
        return false;
    return std::all_of(name.begin(), name.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == '_' || c == '*';
    });
}

// "-KEY=" at the start of a word, with KEY made of letters only; empty otherwise.
std::string OptionKey(const std::string& word)
{
    if (word.size() < 3 || word[0] != '-')
        return std::string();
    const auto eq = word.find('=');
    if (eq == std::string::npos || eq < 2)
        return std::string();
    const std::string key = word.substr(1, eq - 1);
    if (!std::all_of(key.begin(), key.end(),
                     [](char c) { return std::isalpha(static_cast<unsigned char>(c)); }))
        return std::string();
    return key;
}

} // namespace

const char* CertificateOptions::Usage()
{
    return "usage: generate_certificate -CN=<common name> -O=<organization> -OU=<unit> -ST=<region>\n"
           "         -L=<city> -C=<two-letter country> -DNS=<name,name,...> -IP=<address,address,...>\n"
           "         -size=<1024|2048|3072|4096> -alg=<Sha1|Sha224|Sha256|Sha384|Sha512> -val=<days>\n"
           "         -der=<folder for server_cert.der> -pem=<folder for server_key.pem>\n"
           "Values may contain blanks; -CN, -der and -pem are required, the lists may be empty.\n";
}

bool CertificateOptions::Parse(int argc, const char* const* argv, std::string& error)
{
    std::map<std::string, std::string> values;
    std::string currentKey;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const std::string key = OptionKey(word);
        if (!key.empty()) {
            if (!kKeys.count(key)) {
                error = "unknown option -" + key;
                return false;
            }
            if (values.count(key)) {
                error = "option -" + key + " given twice";
                return false;
            }
            values[key] = word.substr(key.size() + 2);
            currentKey = key;
        } else if (!currentKey.empty()) {
            values[currentKey] += " " + word;
        } else {
            error = "unexpected argument '" + word + "'";
            return false;
        }
    }
    for (const char* required : {"CN", "der", "pem"}) {
        if (Trimmed(values[required]).empty()) {
            error = std::string("option -") + required + " is missing or empty";
            return false;
        }
    }
    for (const auto& [key, value] : values)
        if (!Assign(key, value, error))
            return false;
    return true;
}

bool CertificateOptions::Assign(const std::string& key, const std::string& raw, std::string& error)
{
    const std::string value = Trimmed(raw);
    if (key == "CN") {
        commonName = value;
    } else if (key == "O") {
        organization = value;
    } else if (key == "OU") {
        organizationUnit = value;
    } else if (key == "ST") {
        state = value;
    } else if (key == "L") {
        locality = value;
    } else if (key == "C") {
        if (!value.empty() && (value.size() != 2 || !std::isalpha(static_cast<unsigned char>(value[0])) ||
                               !std::isalpha(static_cast<unsigned char>(value[1])))) {
            error = "country '" + value + "' is not a two-letter code";
            return false;
        }
        country = value;
    } else if (key == "DNS") {
        for (const std::string& name : SplitList(value)) {
            if (!ValidDnsName(name)) {
                error = "'" + name + "' is not a host name";
                return false;
            }
            dnsNames.push_back(name);
        }
    } else if (key == "IP") {
        for (const std::string& text : SplitList(value)) {
            unsigned char bytes[16];
            if (inet_pton(AF_INET, text.c_str(), bytes) == 1) {
                ipAddresses.emplace_back(reinterpret_cast<char*>(bytes), 4);
            } else if (inet_pton(AF_INET6, text.c_str(), bytes) == 1) {
                ipAddresses.emplace_back(reinterpret_cast<char*>(bytes), 16);
            } else {
                error = "'" + text + "' is not an IP address";
                return false;
            }
        }
    } else if (key == "size") {
        if (!ParseInt(value, keyBits) || keyBits < 1024 || keyBits > 4096 || keyBits % 1024 != 0) {
            error = "key size '" + value + "' is not one of 1024, 2048, 3072, 4096";
            return false;
        }
    } else if (key == "alg") {
        static const char* const kHashes[] = {"Sha1", "Sha224", "Sha256", "Sha384", "Sha512"};
        const auto known = std::find_if(std::begin(kHashes), std::end(kHashes), [&value](const char* h) {
            return strcasecmp(h, value.c_str()) == 0;
        });
        if (known == std::end(kHashes)) {
            error = "hash '" + value + "' is not one of Sha1, Sha224, Sha256, Sha384, Sha512";
            return false;
        }
        hash = *known;
    } else if (key == "val") {
        if (!ParseInt(value, validityDays) || validityDays < 1 || validityDays > 36500) {
            error = "validity '" + value + "' is not a number of days from 1 to 36500";
            return false;
        }
    } else if (key == "der") {
        derFolder = value;
    } else if (key == "pem") {
        pemFolder = value;
    }
    return true;
}
