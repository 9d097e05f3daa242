#include "server/gatewayserver.h"

#include "server/addressspace.h"
#include "server/diagnostics.h"
#include "server/exitstatus.h"
#include "server/gatewaycertificate.h"
#include "server/methodargument.h"
#include "server/modbus/modbusbridge.h"
#include "server/serverlog.h"
#include "server/sessionguard.h"
#include "server/treeeditor.h"

#include "model/usernotifier.h"

#include <open62541/plugin/accesscontrol_default.h>
#include <open62541/plugin/pki_default.h>
#include <open62541/server_config_default.h>

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

const char* const CGatewayServer::kApplicationUri = "urn:tarnopcua.server.application";

namespace {

const char kBasic256Sha256[] = "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256";
const UA_UInt32 kMaxRequestBytes = 16 << 20;
const char* const kMethods[] = {"addNode", "editNode", "deleteNode", "startExchange", "stopExchange"};

// Originals of the library's plugin operations that we wrap.
UA_StatusCode (*g_verifyUri)(const UA_CertificateVerification*, const UA_ByteString*,
                             const UA_String*) = nullptr;
UA_StatusCode (*g_activate)(UA_Server*, UA_AccessControl*, const UA_EndpointDescription*,
                            const UA_ByteString*, const UA_NodeId*, const UA_ExtensionObject*,
                            void**) = nullptr;
void (*g_close)(UA_Server*, UA_AccessControl*, const UA_NodeId*, void*) = nullptr;
CSessionGuard* g_sessions = nullptr;

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

// What the log shows of a text a client sent: control characters (device
// numbers travel as characters) by their code, so that the line stays one
// line, and no more than the start of a long text, with its full length, so
// that no client can grow the log or its reader without bound.
std::string Printable(const std::string& s)
{
    const std::size_t kShownBytes = 256;
    std::size_t shown = std::min(s.size(), kShownBytes);
    while (shown > 0 && shown < s.size() && (static_cast<unsigned char>(s[shown]) & 0xC0) == 0x80)
        --shown; // not in the middle of a UTF-8 character
    std::string out;
    for (unsigned char c : s.substr(0, shown)) {
        if (c < 0x20 || c == 0x7F) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\x%02X", c);
            out += buf;
        } else {
            out += char(c);
        }
    }
    if (shown < s.size())
        out += "… (всего " + std::to_string(s.size()) + " байт)";
    return out;
}

// The configurator announces a fixed application URI whatever its certificate
// says; a certificate the trust list accepts is good enough for us.
UA_StatusCode AcceptAnyApplicationUri(const UA_CertificateVerification* cv, const UA_ByteString* certificate,
                                      const UA_String* applicationUri)
{
    if (g_verifyUri && g_verifyUri(cv, certificate, applicationUri) != UA_STATUSCODE_GOOD)
        CServerLog::Write(CServerLog::Warning, "URI приложения \"" + Printable(Str(*applicationUri)) +
                                                   "\" не совпадает с сертификатом клиента; принят");
    return UA_STATUSCODE_GOOD;
}

// The library's own accept-all warns about every channel; here it is the
// intended set-up for a gateway without a trust folder.
UA_StatusCode AcceptAnyCertificate(const UA_CertificateVerification*, const UA_ByteString*)
{
    return UA_STATUSCODE_GOOD;
}

std::string TokenText(const UA_ExtensionObject* token)
{
    if (!token || token->encoding < UA_EXTENSIONOBJECT_DECODED)
        return "анонимно";
    const UA_DataType* type = token->content.decoded.type;
    if (type == &UA_TYPES[UA_TYPES_USERNAMEIDENTITYTOKEN])
        return "пользователь \"" +
               Printable(
                   Str(static_cast<const UA_UserNameIdentityToken*>(token->content.decoded.data)->userName)) +
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
    if (rc == UA_STATUSCODE_GOOD && g_sessions)
        g_sessions->Activated(*sessionId);
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
    if (g_sessions)
        g_sessions->Closed(*sessionId);
    g_close(server, ac, sessionId, sessionContext);
}

// Clients change the address space only through the methods of "Каналы".
template <typename Item>
UA_Boolean RefuseNodeManagement(UA_Server*, UA_AccessControl*, const UA_NodeId*, void*, const Item*)
{
    return false;
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

// "<what><milliseconds since `since`> мс" in the debug log.
void LogTook(const char* what, std::chrono::steady_clock::time_point since)
{
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - since)
            .count();
    CServerLog::Write(CServerLog::Debug, what + std::to_string(ms) + " мс");
}

} // namespace

CGatewayServer::CGatewayServer(const CServerOptions& options) : m_options(options) {}

CGatewayServer::CCredentials::~CCredentials()
{
    for (UA_ByteString& b : given)
        UA_ByteString_clear(&b);
    for (UA_ByteString& b : trust)
        UA_ByteString_clear(&b);
}

CGatewayServer::~CGatewayServer()
{
    Stop();
    if (m_server) {
        // Nodes go with the server; their tag runtimes afterwards.
        UA_Server_delete(m_server);
        m_server = nullptr;
    }
    g_sessions = nullptr;
}

void CGatewayServer::ReadTree(CReading& reading)
{
    const auto started = std::chrono::steady_clock::now();
    std::shared_future<bool> made = reading.serverMade.get_future().share();
    // A finished channel's tags are made ready here, once there is a server to take them.
    reading.read = m_config.ReadTree(&m_root, reading.error, [&reading, &made, this](CItem* channel) {
        reading.channels.Put(channel, made.get() ? m_space->Prepare(channel) : CAddressSpace::Prepared());
    });
    reading.channels.Close();
    if (!reading.read)
        return;
    LogTook("Конфигурация прочитана за ", started);
    // No device is polled for a server that does not run.
    if (!made.get())
        return;
    m_modbus->Expect(m_root.GetItemsCount(itTag));
    m_modbus->Reconcile(&m_root);
}

bool CGatewayServer::Configure(UA_ServerConfig* config, std::string& error)
{
    config->logging = CServerLog::Logger();
    if (UA_ServerConfig_setBasics_withPort(config, m_options.port) != UA_STATUSCODE_GOOD) {
        error = "не удалось настроить сервер";
        return false;
    }
    UA_String_clear(&config->applicationDescription.applicationUri);
    config->applicationDescription.applicationUri = UA_STRING_ALLOC(kApplicationUri);
    UA_LocalizedText_clear(&config->applicationDescription.applicationName);
    config->applicationDescription.applicationName = UA_LOCALIZEDTEXT_ALLOC("", "TARN OPC UA MODBUS");
    config->publishingIntervalLimits.min = 10.0;
    config->samplingIntervalLimits.min = 10.0;
    // The largest request of a configurator, monitoring some ten thousand
    // tags, is about a megabyte; a client can't make the gateway take more.
    config->tcpMaxMsgSize = kMaxRequestBytes;

    CCredentials credentials;
    if (!LoadCredentials(credentials, error) || !ConfigureSecurity(config, credentials, error))
        return false;
    if (!m_options.allowAnonymous && m_config.users.empty() && credentials.trust.empty()) {
        error = "анонимный доступ запрещён, а войти некому: в конфигурации нет пользователей и нет "
                "доверенных сертификатов клиентов";
        return false;
    }

    std::vector<UA_UsernamePasswordLogin> logins;
    for (const auto& user : m_config.users) {
        UA_UsernamePasswordLogin login;
        login.username = UA_STRING(const_cast<char*>(user.first.c_str()));
        login.password = UA_STRING(const_cast<char*>(user.second.c_str()));
        logins.push_back(login);
    }
    // Passwords are taken encrypted only, on the None endpoint too.
    const UA_String tokenPolicy = UA_STRING_STATIC(kBasic256Sha256);
    if (UA_AccessControl_defaultWithLoginCallback(config, m_options.allowAnonymous, &tokenPolicy,
                                                  logins.size(), logins.data(), CheckLogin,
                                                  this) != UA_STATUSCODE_GOOD) {
        error = "не удалось настроить контроль доступа";
        return false;
    }
    g_activate = config->accessControl.activateSession;
    g_close = config->accessControl.closeSession;
    config->accessControl.activateSession = ActivateSession;
    config->accessControl.closeSession = CloseSession;
    config->accessControl.allowAddNode = RefuseNodeManagement<UA_AddNodesItem>;
    config->accessControl.allowAddReference = RefuseNodeManagement<UA_AddReferencesItem>;
    config->accessControl.allowDeleteNode = RefuseNodeManagement<UA_DeleteNodesItem>;
    config->accessControl.allowDeleteReference = RefuseNodeManagement<UA_DeleteReferencesItem>;
    return true;
}

bool CGatewayServer::LoadCredentials(CCredentials& c, std::string& error)
{
    if (m_options.Secure()) {
        std::string why;
        for (int i = 0; i < 2; ++i) {
            const std::string& path = i == 0 ? m_options.certificatePath : m_options.privateKeyPath;
            if (!CGatewayCertificate::ReadFile(path, c.given[i], why)) {
                error = std::string(i == 0 ? "сертификат " : "закрытый ключ ") + path + ": " + why;
                m_failureStatus = GatewayExit::kConfigurationError;
                return false;
            }
        }
        if (!CGatewayCertificate::CheckPair(c.given[0], c.given[1], why)) {
            error = "сертификат " + m_options.certificatePath + " нельзя использовать с закрытым ключом " +
                    m_options.privateKeyPath + ": " + why;
            m_failureStatus = GatewayExit::kConfigurationError;
            return false;
        }
        c.certificate = &c.given[0];
        c.key = &c.given[1];
    } else {
        if (!c.own.LoadOrCreate(CGatewayCertificate::DefaultFolder(), kApplicationUri, error))
            return false;
        // A pair that isn't kept is a new one at the next start, which clients will not know.
        CServerLog::Write(c.own.CertificatePath().empty() ? CServerLog::Warning : CServerLog::Info,
                          c.own.Note());
        c.certificate = &c.own.Certificate();
        c.key = &c.own.PrivateKey();
    }
    std::error_code ec;
    if (!m_options.trustFolder.empty()) {
        for (std::filesystem::recursive_directory_iterator it(m_options.trustFolder, ec), end;
             !ec && it != end; it.increment(ec)) {
            UA_ByteString der = UA_BYTESTRING_NULL;
            std::string why;
            if (it->path().extension() != ".der")
                continue;
            if (CGatewayCertificate::ReadFile(it->path(), der, why))
                c.trust.push_back(der);
            else
                CServerLog::Write(CServerLog::Warning,
                                  "Доверенный сертификат " + it->path().string() + " не прочитан: " + why);
        }
        if (ec)
            CServerLog::Write(CServerLog::Warning, "Каталог доверенных сертификатов " +
                                                       m_options.trustFolder + ": " + ec.message());
    }
    return true;
}

bool CGatewayServer::ConfigureSecurity(UA_ServerConfig* config, const CCredentials& c, std::string& error)
{
    if (UA_ServerConfig_addSecurityPolicyNone(config, c.certificate) != UA_STATUSCODE_GOOD ||
        UA_ServerConfig_addSecurityPolicyBasic256Sha256(config, c.certificate, c.key) != UA_STATUSCODE_GOOD) {
        error = m_options.Secure() ? "сертификат или закрытый ключ непригодны"
                                   : "сертификат сервера в " + CGatewayCertificate::DefaultFolder() +
                                         " непригоден; удалите его, и будет создан новый";
        return false;
    }
    // Without a trust folder any client may open an encrypted channel: who may
    // do what is still decided by the login. Certificate logins need the folder.
    UA_StatusCode rc = UA_STATUSCODE_GOOD;
    for (UA_CertificateVerification* cv : {&config->secureChannelPKI, &config->sessionPKI}) {
        if (cv->clear)
            cv->clear(cv);
        if (cv == &config->secureChannelPKI && m_options.trustFolder.empty()) {
            UA_CertificateVerification_AcceptAll(cv);
            cv->verifyCertificate = AcceptAnyCertificate;
            continue;
        }
        rc |=
            UA_CertificateVerification_Trustlist(cv, c.trust.data(), c.trust.size(), nullptr, 0, nullptr, 0);
        g_verifyUri = cv->verifyApplicationURI;
        cv->verifyApplicationURI = AcceptAnyApplicationUri;
    }
    if (rc != UA_STATUSCODE_GOOD) {
        error = "не удалось настроить проверку сертификатов";
        return false;
    }
    config->allowNonePolicyPassword = false;

    // The None endpoint is there for discovery and anonymous sessions; a
    // password on it travels encrypted with the server's certificate.
    UA_ServerConfig_addEndpoint(config, UA_STRING_STATIC("http://opcfoundation.org/UA/SecurityPolicy#None"),
                                UA_MESSAGESECURITYMODE_NONE);
    const UA_String b256 = UA_STRING_STATIC(kBasic256Sha256);
    UA_ServerConfig_addEndpoint(config, b256, UA_MESSAGESECURITYMODE_SIGN);
    UA_ServerConfig_addEndpoint(config, b256, UA_MESSAGESECURITYMODE_SIGNANDENCRYPT);
    return true;
}

bool CGatewayServer::Start(std::string& error)
{
    CServerLog::SetLevel(m_options.logLevel);
    if (!PortFree(m_options.port)) {
        error = "порт " + std::to_string(m_options.port) + " занят";
        return false;
    }
    CUserNotifier::Install([](const QString& title, const QString& text) {
        CServerLog::Write(CServerLog::Warning, (title + ": " + text).toStdString());
    });
    if (!m_config.Read(m_options.configPath, error)) {
        m_failureStatus = GatewayExit::kConfigurationError;
        return false;
    }
    // The tree is read, and its pollers planned, on a thread of its own while
    // this one makes the server and the nodes of each channel read so far.
    m_modbus = std::make_unique<CModbusBridge>();
    CReading reading;
    std::thread reader(&CGatewayServer::ReadTree, this, std::ref(reading));
    const bool made = MakeServer(error);
    reading.serverMade.set_value(made);
    const auto buildStarted = std::chrono::steady_clock::now();
    const UA_StatusCode built = made ? m_space->BuildAtStart([&reading](CAddressSpace::Prepared& tags) {
        return reading.channels.Next(tags);
    })
                                     : UA_STATUSCODE_GOOD;
    reader.join();
    if (!reading.read) {
        // A bad file is what is told, whatever else failed.
        error = reading.error;
        m_failureStatus = GatewayExit::kConfigurationError;
        return false;
    }
    if (!made)
        return false;
    LogTook("Узлы созданы за ", buildStarted);
    if (built != UA_STATUSCODE_GOOD)
        CServerLog::Write(CServerLog::Error,
                          std::string("Не все узлы созданы: ") + UA_StatusCode_name(built));
    // The tail is informative only: the start arguments decide.
    const auto port = m_config.options.find("port");
    if (port != m_config.options.end() && port->second != std::to_string(m_options.port))
        CServerLog::Write(CServerLog::Info, "Порт в файле " + port->second + ", используется " +
                                                std::to_string(m_options.port));
    m_space->AttachLive([this](const CDATagInfo* tag) { return m_modbus->LiveOf(tag); });
    m_diagnostics->Reconcile(&m_root, *m_modbus);
    const UA_StatusCode rc = UA_Server_run_startup(m_server);
    if (rc != UA_STATUSCODE_GOOD) {
        error = "не удалось открыть порт " + std::to_string(m_options.port) + ": " + UA_StatusCode_name(rc);
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

bool CGatewayServer::MakeServer(std::string& error)
{
    UA_ServerConfig config;
    std::memset(&config, 0, sizeof config);
    CServerLog::QuietLibrary(true);
    if (!Configure(&config, error)) {
        m_failureStatus = GatewayExit::kConfigurationError;
        UA_ServerConfig_clean(&config);
        return false;
    }
    m_server = UA_Server_newWithConfig(&config);
    CServerLog::QuietLibrary(false);
    if (!m_server) {
        error = "не удалось создать сервер";
        return false;
    }
    m_sessions = std::make_unique<CSessionGuard>(m_server);
    g_sessions = m_sessions.get();
    m_space = std::make_unique<CAddressSpace>(m_server, &m_clock);
    m_editor = std::make_unique<CTreeEditor>(&m_root, m_space.get());
    m_space->SetLiveSource([this](const CDATagInfo* tag,
                                  const std::string& fullName) { return m_modbus->LiveFor(tag, fullName); },
                           [this](const CDATagInfo* tag) {
                               const bool polled = m_modbus->Polls(tag);
                               return CAddressSpace::Polling{polled, polled && CModbusBridge::Writes(tag)};
                           });
    m_diagnostics = std::make_unique<CDiagnostics>(m_server, &m_clock);
    if (m_space->CreateRoot() != UA_STATUSCODE_GOOD || !AddMethods()) {
        error = "не удалось создать объект «Каналы» и его методы";
        return false;
    }
    if (m_diagnostics->CreateRoot() != UA_STATUSCODE_GOOD) {
        error = "не удалось создать объект «Диагностика»";
        return false;
    }
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
    if (!m_running)
        return;
    UA_Server_run_iterate(m_server, true);
    m_sessions->Check();
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
    if (rc == UA_STATUSCODE_GOOD && method.back() == 'e') { // addNode, editNode, deleteNode
        m_modbus->Reconcile(&m_root);
        m_diagnostics->Reconcile(&m_root, *m_modbus);
    }
    return rc;
}
