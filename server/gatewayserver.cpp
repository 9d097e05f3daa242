#include "server/gatewayserver.h"

#include "server/addressspace.h"
#include "server/methodargument.h"
#include "server/modbus/modbusbridge.h"
#include "server/serverlog.h"
#include "server/treeeditor.h"

#include "config/csvimporter.h"
#include "model/usernotifier.h"

#include <open62541/plugin/accesscontrol_default.h>
#include <open62541/plugin/pki_default.h>
#include <open62541/server_config_default.h>

#include <arpa/inet.h>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

const char* const CGatewayServer::kApplicationUri = "urn:tarnopcua.server.application";

namespace {

const char* const kMethods[] = {"addNode", "editNode", "deleteNode", "startExchange", "stopExchange"};

// Originals of the library's plugin operations that we wrap.
UA_StatusCode (*g_verifyUri)(const UA_CertificateVerification*, const UA_ByteString*,
                             const UA_String*) = nullptr;
UA_StatusCode (*g_activate)(UA_Server*, UA_AccessControl*, const UA_EndpointDescription*,
                            const UA_ByteString*, const UA_NodeId*, const UA_ExtensionObject*,
                            void**) = nullptr;
void (*g_close)(UA_Server*, UA_AccessControl*, const UA_NodeId*, void*) = nullptr;

std::string Str(const UA_String& s)
{
    return s.length ? std::string(reinterpret_cast<const char*>(s.data), s.length) : std::string();
}

std::string PolicyName(const UA_String& uri)
{
    const std::string u = Str(uri);
    const auto hash = u.rfind('#');
    return hash == std::string::npos ? u : u.substr(hash + 1);
}

const char* ModeName(UA_MessageSecurityMode mode)
{
    switch (mode) {
    case UA_MESSAGESECURITYMODE_NONE:
        return "None";
    case UA_MESSAGESECURITYMODE_SIGN:
        return "Sign";
    case UA_MESSAGESECURITYMODE_SIGNANDENCRYPT:
        return "SignAndEncrypt";
    default:
        return "?";
    }
}

// Control characters of an argument (device numbers travel as characters) are
// shown by their code so that the line stays one line.
std::string Printable(const std::string& s)
{
    std::string out;
    for (unsigned char c : s) {
        if (c < 0x20 || c == 0x7F) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\x%02X", c);
            out += buf;
        } else {
            out += char(c);
        }
    }
    return out;
}

bool ReadFile(const std::string& path, UA_ByteString& out)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.empty() || UA_ByteString_allocBuffer(&out, bytes.size()) != UA_STATUSCODE_GOOD)
        return false;
    std::memcpy(out.data, bytes.data(), bytes.size());
    return true;
}

// The configurator announces a fixed application URI whatever its certificate
// says; a certificate the trust list accepts is good enough for us.
UA_StatusCode AcceptAnyApplicationUri(const UA_CertificateVerification* cv, const UA_ByteString* certificate,
                                      const UA_String* applicationUri)
{
    if (g_verifyUri && g_verifyUri(cv, certificate, applicationUri) != UA_STATUSCODE_GOOD)
        CServerLog::Write(CServerLog::Warning, "Application URI \"" + Str(*applicationUri) +
                                                   "\" differs from the client certificate; accepted");
    return UA_STATUSCODE_GOOD;
}

std::string TokenText(const UA_ExtensionObject* token)
{
    if (!token || token->encoding < UA_EXTENSIONOBJECT_DECODED)
        return "анонимно";
    const UA_DataType* type = token->content.decoded.type;
    if (type == &UA_TYPES[UA_TYPES_USERNAMEIDENTITYTOKEN])
        return "пользователь \"" +
               Str(static_cast<const UA_UserNameIdentityToken*>(token->content.decoded.data)->userName) +
               "\"";
    if (type == &UA_TYPES[UA_TYPES_X509IDENTITYTOKEN])
        return "сертификат пользователя";
    return "анонимно";
}

UA_StatusCode ActivateSession(UA_Server* server, UA_AccessControl* ac, const UA_EndpointDescription* ed,
                              const UA_ByteString* remoteCertificate, const UA_NodeId* sessionId,
                              const UA_ExtensionObject* token, void** sessionContext)
{
    const UA_StatusCode rc = g_activate(server, ac, ed, remoteCertificate, sessionId, token, sessionContext);
    const std::string where = PolicyName(ed->securityPolicyUri) + " (" + ModeName(ed->securityMode) + ")";
    if (rc == UA_STATUSCODE_GOOD)
        CServerLog::Write(CServerLog::Info, "Сессия открыта: " + TokenText(token) + ", " + where);
    else
        CServerLog::Write(CServerLog::Warning, "Сессия отклонена: " + TokenText(token) + ", " + where + ": " +
                                                   UA_StatusCode_name(rc));
    return rc;
}

void CloseSession(UA_Server* server, UA_AccessControl* ac, const UA_NodeId* sessionId, void* sessionContext)
{
    CServerLog::Write(CServerLog::Info, "Сессия закрыта");
    g_close(server, ac, sessionId, sessionContext);
}

UA_StatusCode CheckLogin(const UA_String* userName, const UA_ByteString* password, size_t loginSize,
                         const UA_UsernamePasswordLogin* logins, void**, void*)
{
    for (size_t i = 0; i < loginSize; ++i) {
        if (UA_String_equal(userName, &logins[i].username) &&
            UA_ByteString_equal(password, &logins[i].password))
            return UA_STATUSCODE_GOOD;
    }
    return UA_STATUSCODE_BADUSERACCESSDENIED;
}

// The library keeps running without a listening socket when the port is
// taken, so the port is tried first, the way the library binds it.
bool PortFree(std::uint16_t port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return false;
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    addr.sin_port = htons(port);
    const bool ok = ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    ::close(fd);
    return ok;
}

} // namespace

CGatewayServer::CGatewayServer(const CServerOptions& options) : m_options(options) {}

CGatewayServer::~CGatewayServer()
{
    Stop();
    if (m_server) {
        // Nodes go with the server; their tag runtimes afterwards.
        UA_Server_delete(m_server);
        m_server = nullptr;
    }
}

bool CGatewayServer::LoadConfiguration(std::string& error)
{
    const auto started = std::chrono::steady_clock::now();
    if (!m_config.Read(m_options.configPath, error))
        return false;
    const auto tailRead = std::chrono::steady_clock::now();
    CUserNotifier::Install([](const QString& title, const QString& text) {
        CServerLog::Write(CServerLog::Warning, (title + ": " + text).toStdString());
    });
    CCsvLoader loader(&m_root);
    if (!loader.Load(m_options.configPath, false))
        CServerLog::Write(CServerLog::Warning, "Конфигурация прочитана с ошибками: " + loader.LastRowError());
    const auto ms = [](auto a, auto b) {
        return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(b - a).count());
    };
    CServerLog::Write(CServerLog::Debug, "Конфигурация прочитана: параметры за " + ms(started, tailRead) +
                                             " мс, дерево за " +
                                             ms(tailRead, std::chrono::steady_clock::now()) + " мс");
    // The tail is informative only: the start arguments decide.
    const auto port = m_config.options.find("port");
    if (port != m_config.options.end() && port->second != std::to_string(m_options.port))
        CServerLog::Write(CServerLog::Info, "Порт в файле " + port->second + ", используется " +
                                                std::to_string(m_options.port));
    return true;
}

bool CGatewayServer::Configure(UA_ServerConfig* config, std::string& error)
{
    config->logging = CServerLog::Logger();
    if (UA_ServerConfig_setBasics_withPort(config, m_options.port) != UA_STATUSCODE_GOOD) {
        error = "cannot set up the server";
        return false;
    }
    UA_String_clear(&config->applicationDescription.applicationUri);
    config->applicationDescription.applicationUri = UA_STRING_ALLOC(kApplicationUri);
    UA_LocalizedText_clear(&config->applicationDescription.applicationName);
    config->applicationDescription.applicationName = UA_LOCALIZEDTEXT_ALLOC("", "TARN OPC UA MODBUS");
    config->publishingIntervalLimits.min = 10.0;
    config->samplingIntervalLimits.min = 10.0;

    const bool secure = m_options.Secure();
    UA_ByteString certificate = UA_BYTESTRING_NULL;
    UA_ByteString key = UA_BYTESTRING_NULL;
    std::vector<UA_ByteString> trust;
    bool ok = true;
    if (secure) {
        if (!ReadFile(m_options.certificatePath, certificate)) {
            error = "cannot read the certificate " + m_options.certificatePath;
            ok = false;
        } else if (!ReadFile(m_options.privateKeyPath, key)) {
            error = "cannot read the private key " + m_options.privateKeyPath;
            ok = false;
        }
        std::error_code ec;
        if (ok && !m_options.trustFolder.empty()) {
            for (std::filesystem::recursive_directory_iterator it(m_options.trustFolder, ec), end;
                 !ec && it != end; it.increment(ec)) {
                UA_ByteString der = UA_BYTESTRING_NULL;
                if (it->is_regular_file() && it->path().extension() == ".der" && ReadFile(it->path(), der))
                    trust.push_back(der);
            }
        }
    }
    if (ok)
        ok = UA_ServerConfig_addSecurityPolicyNone(config, secure ? &certificate : nullptr) ==
             UA_STATUSCODE_GOOD;
    if (ok && secure) {
        ok =
            UA_ServerConfig_addSecurityPolicyBasic256Sha256(config, &certificate, &key) == UA_STATUSCODE_GOOD;
        if (!ok)
            error = "the certificate or the private key is not usable";
    }
    if (ok && secure) {
        for (UA_CertificateVerification* cv : {&config->secureChannelPKI, &config->sessionPKI}) {
            if (cv->clear)
                cv->clear(cv);
            ok = ok && UA_CertificateVerification_Trustlist(cv, trust.data(), trust.size(), nullptr, 0,
                                                            nullptr, 0) == UA_STATUSCODE_GOOD;
            g_verifyUri = cv->verifyApplicationURI;
            cv->verifyApplicationURI = AcceptAnyApplicationUri;
        }
    } else if (ok) {
        // Without encryption there are no certificate logins to offer.
        if (config->sessionPKI.clear)
            config->sessionPKI.clear(&config->sessionPKI);
        std::memset(&config->sessionPKI, 0, sizeof config->sessionPKI);
        config->allowNonePolicyPassword = true;
    }
    UA_ByteString_clear(&certificate);
    UA_ByteString_clear(&key);
    for (UA_ByteString& b : trust)
        UA_ByteString_clear(&b);
    if (!ok) {
        if (error.empty())
            error = "cannot set up security";
        return false;
    }

    // The None endpoint stays even without anonymous access: a client of this
    // library finds no server and no endpoints unless one endpoint suits its
    // plain discovery configuration. Anonymous sessions are still refused, and
    // passwords on it travel encrypted with the server's certificate.
    UA_ServerConfig_addEndpoint(config, UA_STRING_STATIC("http://opcfoundation.org/UA/SecurityPolicy#None"),
                                UA_MESSAGESECURITYMODE_NONE);
    if (secure) {
        const UA_String b256 = UA_STRING_STATIC("http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256");
        UA_ServerConfig_addEndpoint(config, b256, UA_MESSAGESECURITYMODE_SIGN);
        UA_ServerConfig_addEndpoint(config, b256, UA_MESSAGESECURITYMODE_SIGNANDENCRYPT);
    }

    std::vector<UA_UsernamePasswordLogin> logins;
    for (const auto& user : m_config.users) {
        UA_UsernamePasswordLogin login;
        login.username = UA_STRING(const_cast<char*>(user.first.c_str()));
        login.password = UA_STRING(const_cast<char*>(user.second.c_str()));
        logins.push_back(login);
    }
    if (UA_AccessControl_defaultWithLoginCallback(config, m_options.allowAnonymous, nullptr, logins.size(),
                                                  logins.data(), CheckLogin, this) != UA_STATUSCODE_GOOD) {
        error = "cannot set up access control";
        return false;
    }
    g_activate = config->accessControl.activateSession;
    g_close = config->accessControl.closeSession;
    config->accessControl.activateSession = ActivateSession;
    config->accessControl.closeSession = CloseSession;
    return true;
}

bool CGatewayServer::Start(std::string& error)
{
    CServerLog::SetLevel(m_options.logLevel);
    if (!PortFree(m_options.port)) {
        error = "cannot open port " + std::to_string(m_options.port) + ": it is in use";
        return false;
    }
    if (!LoadConfiguration(error))
        return false;

    UA_ServerConfig config;
    std::memset(&config, 0, sizeof config);
    CServerLog::QuietLibrary(true);
    if (!Configure(&config, error)) {
        UA_ServerConfig_clean(&config);
        return false;
    }
    m_server = UA_Server_newWithConfig(&config);
    CServerLog::QuietLibrary(false);
    if (!m_server) {
        error = "cannot create the server";
        return false;
    }
    m_space = std::make_unique<CAddressSpace>(m_server, &m_clock);
    m_editor = std::make_unique<CTreeEditor>(&m_root, m_space.get());
    m_modbus = std::make_unique<CModbusBridge>();
    m_space->SetLiveSource([this](const CDATagInfo* tag, const std::string& fullName) {
        return m_modbus->LiveFor(tag, fullName);
    });
    if (m_space->CreateRoot() != UA_STATUSCODE_GOOD || !AddMethods()) {
        error = "cannot create the object \"Каналы\" and its methods";
        return false;
    }
    const auto buildStarted = std::chrono::steady_clock::now();
    const UA_StatusCode built = m_space->Build(&m_root);
    CServerLog::Write(CServerLog::Debug,
                      "Узлы созданы за " +
                          std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(
                                             std::chrono::steady_clock::now() - buildStarted)
                                             .count()) +
                          " мс");
    if (built != UA_STATUSCODE_GOOD)
        CServerLog::Write(CServerLog::Error,
                          std::string("Не все узлы созданы: ") + UA_StatusCode_name(built));
    m_modbus->Reconcile(&m_root);
    const UA_StatusCode rc = UA_Server_run_startup(m_server);
    if (rc != UA_STATUSCODE_GOOD) {
        error =
            std::string("cannot open port ") + std::to_string(m_options.port) + ": " + UA_StatusCode_name(rc);
        return false;
    }
    m_running = true;
    CServerLog::Notice("Сервер запущен: порт " + std::to_string(m_options.port) + ", тегов " +
                       std::to_string(m_space->TagCount()) + ", анонимный доступ " +
                       (m_options.allowAnonymous ? "разрешён" : "запрещён") + ", пользователей " +
                       std::to_string(m_config.users.size()));
    PrintEndpoints();
    return true;
}

void CGatewayServer::PrintEndpoints()
{
    const UA_ServerConfig* config = UA_Server_getConfig(m_server);
    std::string urls;
    for (size_t i = 0; i < config->applicationDescription.discoveryUrlsSize; ++i)
        urls += (i ? ", " : "") + Str(config->applicationDescription.discoveryUrls[i]);
    for (size_t i = 0; i < config->endpointsSize; ++i) {
        const UA_EndpointDescription& ed = config->endpoints[i];
        CServerLog::Notice("Конечная точка: " + Str(ed.securityPolicyUri) + " (" + ModeName(ed.securityMode) +
                           ") " + urls);
    }
}

void CGatewayServer::Iterate()
{
    if (m_running)
        UA_Server_run_iterate(m_server, true);
}

void CGatewayServer::Stop()
{
    if (!m_running)
        return;
    m_running = false;
    // Pollers end before the server: no channel thread outlives the nodes.
    m_modbus.reset();
    CServerLog::QuietLibrary(true);
    UA_Server_run_shutdown(m_server);
    CServerLog::Notice("Сервер остановлен");
}

bool CGatewayServer::AddMethods()
{
    UA_Argument input;
    UA_Argument_init(&input);
    input.name = UA_STRING(const_cast<char*>("argument"));
    input.dataType = UA_TYPES[UA_TYPES_STRING].typeId;
    input.valueRank = UA_VALUERANK_SCALAR;
    for (const char* method : kMethods) {
        const std::string id = std::string(CAddressSpace::kChannelsId) + "." + method;
        UA_MethodAttributes attr = UA_MethodAttributes_default;
        attr.displayName = UA_LOCALIZEDTEXT(const_cast<char*>(""), const_cast<char*>(method));
        attr.executable = true;
        attr.userExecutable = true;
        if (UA_Server_addMethodNode(
                m_server, CAddressSpace::NodeId(id), CAddressSpace::NodeId(CAddressSpace::kChannelsId),
                UA_NODEID_NUMERIC(0, UA_NS0ID_HASCOMPONENT), UA_QUALIFIEDNAME(2, const_cast<char*>(method)),
                attr, &CGatewayServer::OnMethod, 1, &input, 0, nullptr, this, nullptr) != UA_STATUSCODE_GOOD)
            return false;
    }
    return true;
}

UA_StatusCode CGatewayServer::OnMethod(UA_Server*, const UA_NodeId*, void*, const UA_NodeId* methodId,
                                       void* methodContext, const UA_NodeId*, void*, size_t inputSize,
                                       const UA_Variant* input, size_t, UA_Variant*)
{
    auto* self = static_cast<CGatewayServer*>(methodContext);
    const std::string id =
        methodId->identifierType == UA_NODEIDTYPE_STRING ? Str(methodId->identifier.string) : "";
    const std::string method = id.substr(id.rfind('.') + 1);
    if (inputSize != 1 || !UA_Variant_hasScalarType(input, &UA_TYPES[UA_TYPES_STRING])) {
        CServerLog::Write(CServerLog::Warning, "Вызов метода " + method + " без строкового аргумента");
        return UA_STATUSCODE_BADINVALIDARGUMENT;
    }
    return self->Call(method, Str(*static_cast<const UA_String*>(input->data)));
}

UA_StatusCode CGatewayServer::Call(const std::string& method, const std::string& argument)
{
    CServerLog::Write(CServerLog::Info, "Вызов метода " + method + ": " + Printable(argument));
    UA_StatusCode rc = UA_STATUSCODE_GOOD;
    if (method == "startExchange") {
        m_clock.Start();
        m_modbus->SetRunning(true);
    } else if (method == "stopExchange") {
        m_clock.Stop();
        m_modbus->SetRunning(false);
    } else {
        const auto kind = method == "addNode"    ? CMethodArgument::Method::Add
                          : method == "editNode" ? CMethodArgument::Method::Edit
                                                 : CMethodArgument::Method::Delete;
        CMethodArgument parsed;
        std::string why;
        if (!CMethodArgument::Parse(kind, argument, parsed, why)) {
            CServerLog::Write(CServerLog::Warning, "Метод " + method + ": неверный аргумент (" + why + ")");
            return UA_STATUSCODE_BADINVALIDARGUMENT;
        }
        rc = kind == CMethodArgument::Method::Add    ? m_editor->Add(parsed)
             : kind == CMethodArgument::Method::Edit ? m_editor->Edit(parsed)
                                                     : m_editor->Delete(parsed);
    }
    CServerLog::Write(rc == UA_STATUSCODE_GOOD ? CServerLog::Info : CServerLog::Warning,
                      "Метод " + method + ": " + UA_StatusCode_name(rc));
    if (rc == UA_STATUSCODE_GOOD && method.back() == 'e')
        m_modbus->Reconcile(&m_root); // addNode, editNode, deleteNode
    return rc;
}
