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
    // A whole certificate or key file: a regular file of at most 64 KiB. False
    // otherwise, with the reason to follow the path ("is a folder", ...).
    static bool ReadFile(const std::string& path, UA_ByteString& out, std::string& why);
    // True when `certificate` (DER or PEM) and `key` (PEM or DER, without a
    // password) parse and the key is the certificate's own; the reason otherwise.
    static bool CheckPair(const UA_ByteString& certificate, const UA_ByteString& key, std::string& why);

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
