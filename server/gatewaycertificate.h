#pragma once

#include <open62541/types.h>

#include <string>

// The gateway's own application certificate for starts without one given:
// made once, self-signed, and kept in a folder of its own so that clients that
// trusted it once keep trusting it. With it the gateway always has the keys to
// take passwords encrypted.
class CGatewayCertificate
{
public:
    CGatewayCertificate() = default;
    ~CGatewayCertificate();
    CGatewayCertificate(const CGatewayCertificate&) = delete;
    CGatewayCertificate& operator=(const CGatewayCertificate&) = delete;

    // "$HOME/Documents/TARN/OPC UA/pki"
    static std::string DefaultFolder();
    // A whole certificate or key file; false for a missing or empty one.
    static bool ReadFile(const std::string& path, UA_ByteString& out);

    // Reads the pair from `folder`, or makes a new one and stores it there.
    // A pair that cannot be stored still serves this run; `note` says so.
    // False with a reason only when there is no pair at all.
    bool LoadOrCreate(const std::string& folder, const std::string& applicationUri, std::string& error);

    const UA_ByteString& Certificate() const { return m_certificate; }
    const UA_ByteString& PrivateKey() const { return m_key; }
    // Empty when the pair could not be stored.
    const std::string& CertificatePath() const { return m_certificatePath; }
    // What happened, for the start log.
    const std::string& Note() const { return m_note; }

private:
    bool Create(const std::string& applicationUri, std::string& error);
    bool Store(const std::string& folder, std::string& error) const;

    UA_ByteString m_certificate = UA_BYTESTRING_NULL;
    UA_ByteString m_key = UA_BYTESTRING_NULL;
    std::string m_certificatePath;
    std::string m_note;
};
