#pragma once

#include "server/channelfeed.h"
#include "server/exchangeclock.h"
#include "server/exitstatus.h"
#include "server/gatewaycertificate.h"
#include "server/gatewayconfig.h"
#include "server/serveroptions.h"

#include "model/treeitemroot.h"

#include <open62541/server.h>

#include <future>
#include <memory>
#include <string>
#include <vector>

class CAddressSpace;
class CDiagnostics;
class CModbusBridge;
class CSessionGuard;
class CTreeEditor;

// The gateway: an OPC UA server on the configuration tree with the five
// methods of "Каналы" and emulated tag values.
class CGatewayServer
{
public:
    static const char* const kApplicationUri;

    explicit CGatewayServer(const CServerOptions& options);
    ~CGatewayServer();
    CGatewayServer(const CGatewayServer&) = delete;
    CGatewayServer& operator=(const CGatewayServer&) = delete;

    // Reads the configuration, sets up security and the address space and
    // opens the port. False with a reason when the server cannot run.
    bool Start(std::string& error);
    // The exit status for a failed Start: a configuration error or another failure.
    int FailureStatus() const { return m_failureStatus; }
    // One pass of the server's event loop; waits for work at most briefly.
    void Iterate();
    void Stop();

private:
    // What the reading thread hands back.
    struct CReading
    {
        CChannelFeed channels;
        // Told by the starting thread: the reader plans the pollers only then.
        std::promise<bool> serverMade;
        bool read = false;
        std::string error;
    };
    // The tree from the file Read took, then the pollers: the reading thread.
    void ReadTree(CReading& reading);
    // Everything of the server but the tree's nodes.
    bool MakeServer(std::string& error);
    // The certificate and key the server runs with, given or its own, and the
    // trusted client certificates.
    struct CCredentials
    {
        CCredentials() = default;
        ~CCredentials();
        CCredentials(const CCredentials&) = delete;
        CCredentials& operator=(const CCredentials&) = delete;
        CGatewayCertificate own;
        UA_ByteString given[2] = {UA_BYTESTRING_NULL, UA_BYTESTRING_NULL};
        const UA_ByteString* certificate = nullptr;
        const UA_ByteString* key = nullptr;
        std::vector<UA_ByteString> trust;
    };

    bool Configure(UA_ServerConfig* config, std::string& error);
    bool LoadCredentials(CCredentials& credentials, std::string& error);
    bool ConfigureSecurity(UA_ServerConfig* config, const CCredentials& credentials, std::string& error);
    bool AddMethods();
    void PrintEndpoints();
    UA_StatusCode Call(const std::string& method, const std::string& argument);

    static UA_StatusCode OnMethod(UA_Server* server, const UA_NodeId* sessionId, void* sessionContext,
                                  const UA_NodeId* methodId, void* methodContext, const UA_NodeId* objectId,
                                  void* objectContext, size_t inputSize, const UA_Variant* input,
                                  size_t outputSize, UA_Variant* output);

    CServerOptions m_options;
    CGatewayConfig m_config;
    CTreeItemRoot m_root;
    CExchangeClock m_clock;
    UA_Server* m_server = nullptr;
    bool m_running = false;
    int m_failureStatus = GatewayExit::kFailure;
    std::unique_ptr<CAddressSpace> m_space;
    std::unique_ptr<CDiagnostics> m_diagnostics;
    std::unique_ptr<CTreeEditor> m_editor;
    std::unique_ptr<CModbusBridge> m_modbus;
    std::unique_ptr<CSessionGuard> m_sessions;
};
