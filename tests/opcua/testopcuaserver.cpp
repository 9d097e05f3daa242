#include "tests/opcua/testopcuaserver.h"

#include <open62541/plugin/accesscontrol_default.h>
#include <open62541/plugin/create_certificate.h>
#include <open62541/server_config_default.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <vector>

const char* const TestOpcUaServer::kUser = "operator";
const char* const TestOpcUaServer::kPassword = "secret";

namespace {

void quietLog(void*, UA_LogLevel, UA_LogCategory, const char*, va_list) {}
UA_Logger g_quietLogger = {quietLog, nullptr, nullptr};

UA_ByteString borrowed(const QByteArray& bytes)
{
    return {size_t(bytes.size()), reinterpret_cast<UA_Byte*>(const_cast<char*>(bytes.constData()))};
}

QByteArray toByteArray(const UA_ByteString& bytes)
{
    return QByteArray(reinterpret_cast<const char*>(bytes.data), qsizetype(bytes.length));
}

} // namespace

TestOpcUaServer::TestOpcUaServer(const QString& applicationUri, const Security& security)
    : m_applicationUri(applicationUri), m_security(security)
{
}

TestOpcUaServer::~TestOpcUaServer()
{
    m_running = false;
    if (m_thread.joinable())
        m_thread.join();
    if (m_server) {
        UA_Server_run_shutdown(m_server);
        UA_Server_delete(m_server);
    }
    qDeleteAll(m_contexts);
}

quint16 TestOpcUaServer::freePort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof address;
    quint16 port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    ::close(fd);
    return port;
}

bool TestOpcUaServer::createCertificate(const QString& applicationUri, QByteArray& certificate,
                                        QByteArray& privateKey)
{
    const QByteArray uri = "URI:" + applicationUri.toUtf8();
    UA_String subject[] = {UA_STRING(const_cast<char*>("C=DE")), UA_STRING(const_cast<char*>("O=Test")),
                           UA_STRING(const_cast<char*>("CN=VelmoraTest@localhost"))};
    UA_String altNames[] = {UA_STRING(const_cast<char*>("DNS:localhost")),
                            UA_STRING(const_cast<char*>(uri.constData()))};
    UA_UInt16 keyBits = 2048;
    UA_KeyValueMap params = UA_KEYVALUEMAP_NULL;
    UA_KeyValueMap_setScalar(&params, UA_QUALIFIEDNAME(0, const_cast<char*>("key-size-bits")), &keyBits,
                             &UA_TYPES[UA_TYPES_UINT16]);
    UA_ByteString key = UA_BYTESTRING_NULL;
    UA_ByteString cert = UA_BYTESTRING_NULL;
    const UA_StatusCode status = UA_CreateCertificate(&g_quietLogger, subject, 3, altNames, 2,
                                                      UA_CERTIFICATEFORMAT_DER, &params, &key, &cert);
    UA_KeyValueMap_clear(&params);
    if (status == UA_STATUSCODE_GOOD) {
        certificate = toByteArray(cert);
        privateKey = toByteArray(key);
    }
    UA_ByteString_clear(&key);
    UA_ByteString_clear(&cert);
    return status == UA_STATUSCODE_GOOD;
}

bool TestOpcUaServer::start()
{
    m_port = freePort();
    UA_ServerConfig config;
    std::memset(&config, 0, sizeof config);
    config.logging = &g_quietLogger;
    UA_StatusCode status;
    if (m_security.certificate.isEmpty()) {
        status = UA_ServerConfig_setMinimal(&config, m_port, nullptr);
    } else {
        std::vector<UA_ByteString> trust;
        for (const QByteArray& t : m_security.trusted)
            trust.push_back(borrowed(t));
        const UA_ByteString cert = borrowed(m_security.certificate);
        const UA_ByteString key = borrowed(m_security.privateKey);
        status = UA_ServerConfig_setDefaultWithSecurityPolicies(&config, m_port, &cert, &key, trust.data(),
                                                                trust.size(), nullptr, 0, nullptr, 0);
    }
    if (status != UA_STATUSCODE_GOOD)
        return false;

    UA_String_clear(&config.applicationDescription.applicationUri);
    config.applicationDescription.applicationUri = UA_STRING_ALLOC(m_applicationUri.toUtf8().constData());
    UA_UsernamePasswordLogin login = {UA_STRING(const_cast<char*>(kUser)),
                                      UA_STRING(const_cast<char*>(kPassword))};
    UA_AccessControl_default(&config, true, nullptr, 1, &login);
    config.allowNonePolicyPassword = true;

    m_server = UA_Server_newWithConfig(&config);
    if (!m_server)
        return false;
    addNodes();
    if (UA_Server_run_startup(m_server) != UA_STATUSCODE_GOOD)
        return false;
    m_running = true;
    m_thread = std::thread([this] {
        while (m_running)
            UA_Server_run_iterate(m_server, true);
    });
    return true;
}

QStringList TestOpcUaServer::calls() const
{
    std::lock_guard<std::mutex> lock(m_callsMutex);
    return m_calls;
}

UA_StatusCode TestOpcUaServer::onMethod(UA_Server*, const UA_NodeId*, void*, const UA_NodeId*,
                                        void* methodContext, const UA_NodeId*, void*, size_t inputSize,
                                        const UA_Variant* input, size_t, UA_Variant*)
{
    auto* context = static_cast<MethodContext*>(methodContext);
    QString argument;
    if (inputSize == 1 && UA_Variant_hasScalarType(input, &UA_TYPES[UA_TYPES_STRING])) {
        const auto* text = static_cast<const UA_String*>(input->data);
        argument = QString::fromUtf8(reinterpret_cast<const char*>(text->data), qsizetype(text->length));
    }
    {
        std::lock_guard<std::mutex> lock(context->server->m_callsMutex);
        context->server->m_calls << context->name + '|' + argument;
    }
    return context->server->m_failCalls ? UA_STATUSCODE_BADINVALIDARGUMENT : UA_STATUSCODE_GOOD;
}

void TestOpcUaServer::addNodes()
{
    const UA_UInt16 ns = UA_Server_addNamespace(m_server, "urn:velmora:test");
    auto sid = [ns](const char* id) { return UA_NODEID_STRING(ns, const_cast<char*>(id)); };
    auto name = [ns](const char* text) { return UA_QUALIFIEDNAME(ns, const_cast<char*>(text)); };

    UA_ObjectAttributes object = UA_ObjectAttributes_default;
    UA_Server_addObjectNode(m_server, sid("Каналы"), UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER),
                            UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES), name("Каналы"),
                            UA_NODEID_NUMERIC(0, UA_NS0ID_BASEOBJECTTYPE), object, nullptr, nullptr);
    UA_Server_addObjectNode(m_server, sid("Канал1"), sid("Каналы"), UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES),
                            name("Канал1"), UA_NODEID_NUMERIC(0, UA_NS0ID_BASEOBJECTTYPE), object, nullptr,
                            nullptr);
    UA_VariableAttributes variable = UA_VariableAttributes_default;
    UA_Server_addVariableNode(
        m_server, sid("Канал1.Тег"), sid("Канал1"), UA_NODEID_NUMERIC(0, UA_NS0ID_HASCOMPONENT), name("Тег"),
        UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE), variable, nullptr, nullptr);
    // A numeric node and what hangs below it must stay out of the browse result.
    UA_Server_addObjectNode(m_server, UA_NODEID_NUMERIC(ns, 5000), sid("Каналы"),
                            UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES), name("Числовой"),
                            UA_NODEID_NUMERIC(0, UA_NS0ID_BASEOBJECTTYPE), object, nullptr, nullptr);
    UA_Server_addVariableNode(
        m_server, sid("Скрытый"), UA_NODEID_NUMERIC(ns, 5000), UA_NODEID_NUMERIC(0, UA_NS0ID_HASCOMPONENT),
        name("Скрытый"), UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE), variable, nullptr, nullptr);

    UA_Argument argument;
    UA_Argument_init(&argument);
    argument.dataType = UA_TYPES[UA_TYPES_STRING].typeId;
    argument.valueRank = UA_VALUERANK_SCALAR;
    for (const char* method : {"addNode", "editNode", "deleteNode", "startExchange", "stopExchange"}) {
        const QByteArray id = QByteArray("Каналы.") + method;
        auto* context = new MethodContext{this, QString::fromLatin1(method)};
        m_contexts << context;
        UA_MethodAttributes attributes = UA_MethodAttributes_default;
        attributes.executable = true;
        attributes.userExecutable = true;
        UA_Server_addMethodNodeEx(m_server, sid(id.constData()), sid("Каналы"),
                                  UA_NODEID_NUMERIC(0, UA_NS0ID_HASCOMPONENT), name(method), attributes,
                                  onMethod, 1, &argument, UA_NODEID_NUMERIC(ns, 0), nullptr, 0, nullptr,
                                  UA_NODEID_NUMERIC(ns, 0), nullptr, context, nullptr);
    }
}
