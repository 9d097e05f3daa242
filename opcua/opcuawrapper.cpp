#include "opcua/opcuawrapper.h"

#include "app/logging.h"
#include "opcua/diagnosticswatcher.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QThread>
#include <QTimer>

#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>
#include <open62541/client_highlevel_async.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

const char* const kGatewayApplicationUri = "urn:tarnopcua.server.application";
const char* const kClientApplicationUri = "urn:open62541.server.application";
const char* const kChannelsObject = "Каналы";
const char* const kNoServer = "Сервер недоступен, действие отменено";
const UA_UInt32 kRequestTimeoutMs = 3600000;
// How often a running loop asks whether the server still answers, and how long it waits.
const std::chrono::seconds kAliveInterval(1);
const std::chrono::seconds kSilenceLimit(3);
// How often the session is looked at while no monitoring loop runs the client.
const int kIdleWatchMs = 200;

// The library's own messages belong in the program's log, not on the console.
void forwardLibraryLog(void*, UA_LogLevel level, UA_LogCategory, const char* msg, va_list args)
{
    if (level < UA_LOGLEVEL_INFO)
        return;
    char buffer[1024];
    std::vsnprintf(buffer, sizeof buffer, msg, args);
    const QString text = QStringLiteral("open62541: ") + QString::fromUtf8(buffer);
    if (level >= UA_LOGLEVEL_WARNING)
        VLOG_WARNING().noquote() << text;
    else
        VLOG_INFO().noquote() << text;
}

// Shared by every client; it owns nothing, so there is nothing to clear.
UA_Logger g_libraryLogger = {forwardLibraryLog, nullptr, nullptr};

#ifdef UA_ENABLE_ENCRYPTION
// Without a callback the library asks for a key password on stdin, which would
// hang the program. The program has no way to ask for one, so it declines.
UA_StatusCode declineKeyPassword(UA_ClientConfig*, UA_ByteString*)
{
    VLOG_WARNING().noquote() << "Закрытый ключ не прочитан без пароля; ключи с паролем не поддерживаются";
    return UA_STATUSCODE_BADSECURITYCHECKSFAILED;
}
#endif

// Whole file as bytes. A file that cannot be opened gives an empty string with
// no message: the connection attempt that needs it tells the user.
UA_ByteString loadFile(const QString& path)
{
    UA_ByteString bytes = UA_BYTESTRING_NULL;
    FILE* fp = std::fopen(QFile::encodeName(path).constData(), "rb");
    if (!fp) {
        errno = 0;
        return bytes;
    }
    std::fseek(fp, 0, SEEK_END);
    const long size = std::ftell(fp);
    bytes.length = size > 0 ? size_t(size) : 0;
    bytes.data = static_cast<UA_Byte*>(UA_malloc(bytes.length * sizeof(UA_Byte)));
    if (bytes.data) {
        std::fseek(fp, 0, SEEK_SET);
        const size_t read = std::fread(bytes.data, sizeof(UA_Byte), bytes.length, fp);
        if (read != bytes.length)
            UA_ByteString_clear(&bytes);
    } else {
        bytes.length = 0;
    }
    std::fclose(fp);
    return bytes;
}

QString statusName(UA_StatusCode status)
{
    return QString::fromUtf8(UA_StatusCode_name(status));
}

} // namespace

OPCUAWrapper* OPCUAWrapper::_singleOPCUAWrapper = nullptr;

OPCUAWrapper::OPCUAWrapper(QObject* parent)
    : QObject(parent), m_sessionWatch(new QTimer(this)), m_diagnostics(new DiagnosticsWatcher(this))
{
    m_sessionWatch->setInterval(kIdleWatchMs);
    connect(m_sessionWatch, &QTimer::timeout, this, &OPCUAWrapper::watchIdleSession);
}

OPCUAWrapper::~OPCUAWrapper()
{
    auto lock = lockClient();
    deleteClient();
    if (serverDescriptions)
        UA_Array_delete(serverDescriptions, serverDescriptionCount,
                        &UA_TYPES[UA_TYPES_APPLICATIONDESCRIPTION]);
    UA_ByteString_clear(&localCertificate);
    UA_ByteString_clear(&privateKey);
}

OPCUAWrapper* OPCUAWrapper::GetInstance()
{
    if (!_singleOPCUAWrapper) {
        _singleOPCUAWrapper = new OPCUAWrapper;
        // A worker may ask first; the object still belongs to the GUI thread,
        // which outlives every worker.
        if (QCoreApplication::instance() && QThread::currentThread() != qApp->thread())
            _singleOPCUAWrapper->moveToThread(qApp->thread());
    }
    return _singleOPCUAWrapper;
}

OPCUAWrapper::CertificateChooser& OPCUAWrapper::certificateChooser()
{
    static CertificateChooser chooser;
    return chooser;
}

void OPCUAWrapper::SetCertificateChooser(CertificateChooser chooser)
{
    certificateChooser() = std::move(chooser);
}

std::unique_lock<std::recursive_mutex> OPCUAWrapper::lockClient()
{
    ++m_clientWaiters;
    std::unique_lock<std::recursive_mutex> lock(m_clientMutex);
    --m_clientWaiters;
    return lock;
}

void OPCUAWrapper::deleteClient()
{
    if (!clientUsable())
        return;
    // Whatever the deletion closes was given up here, not lost.
    UA_Client_getConfig(client)->clientContext = nullptr;
    UA_Client_delete(client);
    m_clientAlive = false;
    m_diagnostics->forget();
}

void OPCUAWrapper::report(const QString& text, bool warning)
{
    emit signalSetLogDlgSearchDevice(text);
    if (warning)
        VLOG_WARNING().noquote() << text;
    else
        VLOG_INFO().noquote() << text;
}

void OPCUAWrapper::failConnection(const QString& text)
{
    report(text, true);
    emit signalErrorConnect();
    deleteClient();
    connected = false;
}

int OPCUAWrapper::connectToServer(QString url, QString endpointText, bool browse, int authKind, QString user,
                                  QString password)
{
    auto lock = lockClient();
    if (!clientUsable()) {
        report(kNoServer, true);
        return 1;
    }
    UA_ClientConfig* config = UA_Client_getConfig(client);
    config->securityMode = endpointText.contains(QStringLiteral("None"))
                               ? UA_MESSAGESECURITYMODE_NONE
                               : UA_MESSAGESECURITYMODE_SIGNANDENCRYPT;

    UA_String_clear(&config->securityPolicyUri);
    const QStringList parts = endpointText.split(QStringLiteral(" ("), Qt::KeepEmptyParts);
    if (parts.isEmpty()) {
        failConnection("Не удалось подключиться к конечной точке. Конечная точка не опознана");
        return 1;
    }
    const QString policy = parts.first();
    config->securityPolicyUri = UA_STRING_ALLOC(policy.toUtf8().constData());

    UA_ApplicationDescription_clear(&config->clientDescription);
    config->clientDescription.applicationUri = UA_STRING_ALLOC(kClientApplicationUri);
    config->clientDescription.applicationType = UA_APPLICATIONTYPE_CLIENT;
    VLOG_INFO().noquote() << QStringLiteral("Выбрана конечная точка: %1").arg(policy);

    if (authKind >= 1 && authKind <= 3) {
        const CertificateChooser& choose = certificateChooser();
        if (!choose) {
            VLOG_WARNING().noquote() << "Выбор сертификатов недоступен, подключение отменено";
            return 1;
        }
        // The chooser waits for the user on the GUI thread; the client stays free meanwhile.
        lock.unlock();
        CertificatePaths chosen = choose({pathCertificate, pathPrivateKey, pathTrustList});
        if (chosen.certificate.isEmpty() || chosen.privateKey.isEmpty() || chosen.trustDirectory.isEmpty())
            return 1;
        lock.lock();
        if (!clientUsable()) {
            report(kNoServer, true);
            return 1;
        }
        setPathCerts(chosen.certificate, chosen.privateKey, chosen.trustDirectory);
        config = UA_Client_getConfig(client);
        if (configureEncryption(config, chosen.trustDirectory, authKind) &&
            !trustServer(config, url, authKind, chosen.trustDirectory))
            return 1;
        if (authKind == 2) {
            UA_UserNameIdentityToken* token = UA_UserNameIdentityToken_new();
            token->userName = UA_STRING_ALLOC(user.toUtf8().constData());
            token->password = UA_STRING_ALLOC(password.toUtf8().constData());
            UA_ExtensionObject_clear(&config->userIdentityToken);
            UA_ExtensionObject_setValue(&config->userIdentityToken, token,
                                        &UA_TYPES[UA_TYPES_USERNAMEIDENTITYTOKEN]);
        }
    }

    const UA_StatusCode status = UA_Client_connect(client, url.toUtf8().constData());
    if (status != UA_STATUSCODE_GOOD) {
        const QString name = statusName(status);
        if (status == UA_STATUSCODE_BADCONNECTIONREJECTED && autoConnecting) {
            failConnection(
                QStringLiteral("Не удалось автоматически подключиться к конечной точке. Попробуйте в "
                               "ручную. Код ошибки %1")
                    .arg(name));
            return 2;
        }
        if (status == UA_STATUSCODE_BADINTERNALERROR || status == UA_STATUSCODE_BADIDENTITYTOKENREJECTED)
            failConnection(QStringLiteral("Не удалось подключиться к конечной точке. Возможно, неверная "
                                          "политика безопасности. Код ошибки %1")
                               .arg(name));
        else
            failConnection(
                QStringLiteral("Не удалось подключиться к конечной точке. Код ошибки %1").arg(name));
        return 1;
    }

    report("Подключение успешно завершено.", false);
    if (browse)
        browseNodes(client, QStringLiteral("ns=2;s=") + kChannelsObject);
    connected = true;
    connectedOnce = true;
    // The connection may be made on a worker; the watch runs where the object lives.
    QMetaObject::invokeMethod(m_sessionWatch, qOverload<>(&QTimer::start), Qt::QueuedConnection);
    UA_Array_delete(serverDescriptions, serverDescriptionCount, &UA_TYPES[UA_TYPES_APPLICATIONDESCRIPTION]);
    serverDescriptions = nullptr;
    serverDescriptionCount = 0;
    return 0;
}

// Loads the trust list and sets up the secured channel. Returns whether the
// encryption was configured at all (no trust files: it is not).
bool OPCUAWrapper::configureEncryption(UA_ClientConfig* config, const QString& trustDirectory, int authKind)
{
    QStringList trustFiles;
    QDirIterator it(trustDirectory, {QStringLiteral("*.der")}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        trustFiles << it.next();
    if (trustFiles.isEmpty()) {
        VLOG_WARNING().noquote() << QStringLiteral("В каталоге %1 нет доверенных сертификатов (*.der), "
                                                   "шифрование не настроено")
                                        .arg(trustDirectory);
        return false;
    }

#ifdef UA_ENABLE_ENCRYPTION
    std::vector<UA_ByteString> trustList;
    trustList.reserve(size_t(trustFiles.size()));
    for (const QString& file : trustFiles)
        trustList.push_back(loadFile(file));

    config->privateKeyPasswordCallback = declineKeyPassword;
    const UA_StatusCode status =
        UA_ClientConfig_setDefaultEncryption(config, localCertificate, privateKey, trustList.data(),
                                             trustList.size(), revocationList, revocationListSize);
    for (UA_ByteString& bytes : trustList)
        UA_ByteString_clear(&bytes);

    // The library answers Good even when no secured policy could be built from
    // the certificate and key; it only logs. Say so plainly.
    size_t securedPolicies = 0;
    for (size_t i = 0; i < config->securityPoliciesSize; ++i) {
        const UA_String& uri = config->securityPolicies[i].policyUri;
        const QString text = UA_StringToQString(uri);
        if (!text.endsWith(QStringLiteral("#None")))
            ++securedPolicies;
    }
    if (securedPolicies == 0)
        VLOG_WARNING().noquote() << QStringLiteral("Не удалось настроить шифрование: ни одна политика "
                                                   "безопасности не загружена. Проверьте сертификат %1 и "
                                                   "закрытый ключ %2 (код %3)")
                                        .arg(pathCertificate, pathPrivateKey, statusName(status));

    if (authKind == 3)
        UA_ClientConfig_setAuthenticationCert(config, localCertificate, privateKey);
    return true;
#else
    Q_UNUSED(config);
    Q_UNUSED(authKind);
    VLOG_WARNING().noquote() << "Библиотека OPC UA собрана без шифрования";
    return false;
#endif
}

// With a trust folder the server has to show a certificate from it before
// anything of the user's leaves: its endpoint, read here, is fixed in the
// configuration with the certificate checked, so the channel, the password and
// the login certificate all go to that certificate and to no other one that a
// man in the middle might show later. False, told and given up, otherwise.
bool OPCUAWrapper::trustServer(UA_ClientConfig* config, const QString& url, int authKind,
                               const QString& trustDirectory)
{
    UA_ClientConfig probeConfig;
    std::memset(&probeConfig, 0, sizeof probeConfig);
    probeConfig.logging = &g_libraryLogger;
    UA_ClientConfig_setDefault(&probeConfig);
    UA_Client* probe = UA_Client_newWithConfig(&probeConfig);
    size_t size = 0;
    UA_EndpointDescription* endpoints = nullptr;
    const UA_StatusCode status =
        probe ? UA_Client_getEndpoints(probe, url.toUtf8().constData(), &size, &endpoints)
              : UA_STATUSCODE_BADOUTOFMEMORY;
    UA_Client_delete(probe);
    if (status != UA_STATUSCODE_GOOD) {
        failConnection(QStringLiteral("Не удалось подключиться к конечной точке. Код ошибки %1")
                           .arg(statusName(status)));
        return false;
    }

    const UA_UserTokenType tokenType = authKind == 2   ? UA_USERTOKENTYPE_USERNAME
                                       : authKind == 3 ? UA_USERTOKENTYPE_CERTIFICATE
                                                       : UA_USERTOKENTYPE_ANONYMOUS;
    const UA_String none = UA_STRING_STATIC("http://opcfoundation.org/UA/SecurityPolicy#None");
    // A login the client can make, as the library picks one.
    const auto usable = [config, tokenType, &none](const UA_UserTokenPolicy& policy) {
        const UA_String& uri = policy.securityPolicyUri.length ? policy.securityPolicyUri : none;
        bool known = false;
        for (size_t i = 0; i < config->securityPoliciesSize && !known; ++i)
            known = UA_String_equal(&config->securityPolicies[i].policyUri, &uri);
        return policy.tokenType == tokenType && known &&
               (config->authSecurityPolicyUri.length == 0 ||
                UA_String_equal(&config->authSecurityPolicyUri, &policy.securityPolicyUri));
    };
    const UA_EndpointDescription* endpoint = nullptr;
    const UA_UserTokenPolicy* token = nullptr;
    for (size_t i = 0; i < size && !token; ++i) {
        const UA_EndpointDescription& e = endpoints[i];
        if (e.securityMode != config->securityMode ||
            !UA_String_equal(&e.securityPolicyUri, &config->securityPolicyUri))
            continue;
        endpoint = &e;
        for (size_t j = 0; j < e.userIdentityTokensSize && !token; ++j)
            if (usable(e.userIdentityTokens[j]))
                token = &e.userIdentityTokens[j];
    }

    QString refusal;
    if (!endpoint)
        refusal = "Не удалось подключиться к конечной точке. Конечная точка не опознана";
    else if (!config->certificateVerification.verifyCertificate ||
             config->certificateVerification.verifyCertificate(
                 &config->certificateVerification, &endpoint->serverCertificate) != UA_STATUSCODE_GOOD)
        refusal =
            QStringLiteral("Сертификат сервера не найден среди доверенных сертификатов каталога %1: "
                           "подключение отменено, ни пароль, ни сертификат не отправлены. Чтобы доверять "
                           "серверу, положите его сертификат (.der) в этот каталог")
                .arg(trustDirectory);
    else if (!token)
        refusal = "Не удалось подключиться к конечной точке. Сервер не принимает выбранный способ входа";
    else if (tokenType == UA_USERTOKENTYPE_USERNAME &&
             endpoint->securityMode == UA_MESSAGESECURITYMODE_NONE &&
             (token->securityPolicyUri.length == 0 || UA_String_equal(&token->securityPolicyUri, &none)))
        refusal =
            "Не удалось подключиться к конечной точке. Сервер принимает пароль только открытым текстом, "
            "пароль не отправлен";

    if (refusal.isEmpty()) {
        UA_EndpointDescription_clear(&config->endpoint);
        UA_EndpointDescription_copy(endpoint, &config->endpoint);
        UA_UserTokenPolicy_clear(&config->userTokenPolicy);
        UA_UserTokenPolicy_copy(token, &config->userTokenPolicy);
    }
    UA_Array_delete(endpoints, size, &UA_TYPES[UA_TYPES_ENDPOINTDESCRIPTION]);
    if (refusal.isEmpty())
        return true;
    failConnection(refusal);
    return false;
}

int OPCUAWrapper::disconnectToServer()
{
    auto lock = lockClient();
    if (!client) {
        report(kNoServer, true);
        return 1;
    }
    if ((!connected && !m_sessionLost) || !m_clientAlive) {
        report("Ошибка отключения от сервера", true);
        return 1;
    }
    // Cleared first: the session closed here is not a lost one.
    connected = false;
    m_sessionLost = false;
    UA_Client_disconnect(client);
    deleteClient();
    autoConnecting = false;
    emit signalErrorConnect();
    return 0;
}

void OPCUAWrapper::setPathCerts(QString& certificate, QString& privateKey, QString& trustDirectory)
{
    if (certificate.isEmpty() || privateKey.isEmpty() || trustDirectory.isEmpty())
        return;
    pathCertificate = certificate;
    pathPrivateKey = privateKey;
    pathTrustList = trustDirectory;
    setupPkiConfiguration();
}

void OPCUAWrapper::setupPkiConfiguration()
{
    if (pathCertificate.isEmpty() || pathPrivateKey.isEmpty()) {
        report("Сертификаты не найдены", true);
        return;
    }
    UA_ByteString_clear(&localCertificate);
    localCertificate = loadFile(pathCertificate);
    UA_ByteString_clear(&privateKey);
    privateKey = loadFile(pathPrivateKey);
}

bool OPCUAWrapper::createPkiPath(QString& path)
{
    const bool made = QDir().mkpath(path);
    const QString text =
        QStringLiteral("Создание каталога PKI: ") + path + (made ? ": Успешно" : ": Неудачно");
    report(text, !made);
    return made;
}

std::thread OPCUAWrapper::runIterate()
{
    return std::thread(&OPCUAWrapper::iterate, this);
}

void OPCUAWrapper::iterate()
{
    m_iterating = true;
    m_aliveAsking = false;
    m_aliveAsked = std::chrono::steady_clock::now();
    while (statusIterate) {
        {
            auto lock = lockClient();
            // A lost session is not reopened in the background: its
            // subscriptions are gone, and the program starts monitoring anew.
            if (!clientUsable() || m_sessionLost)
                break;
            UA_Client_run_iterate(client, 10);
            watchSession();
            if (connected)
                m_diagnostics->advance(client);
        }
        // A caller waiting for the client goes before the next pass.
        while (m_clientWaiters > 0 && statusIterate)
            std::this_thread::yield();
    }
    m_iterating = false;
}

// Without the monitoring loop nothing would read the connection, and a gateway
// that went away would only be found by the next command. This runs on the
// object's thread and never waits for the client: a call in progress or the
// loop has it, and either finds out for itself.
void OPCUAWrapper::watchIdleSession()
{
    std::unique_lock<std::recursive_mutex> lock(m_clientMutex, std::try_to_lock);
    if (!lock.owns_lock() || m_iterating)
        return;
    if (!clientUsable() || !connected || m_sessionLost) {
        m_sessionWatch->stop();
        return;
    }
    UA_Client_run_iterate(client, 0);
    watchSession();
    if (connected)
        m_diagnostics->advance(client);
}

// Called by the library, inside the client, on every change of the channel or
// session. A channel or session that goes away while the program believes
// itself connected is a loss (the library would keep the session and try the
// channel again, which a dead gateway only answers later, if at all); the
// orderly disconnection clears that belief first.
void OPCUAWrapper::stateChanged(UA_Client* client, UA_SecureChannelState channel, UA_SessionState session,
                                UA_StatusCode status)
{
    auto* wrapper = static_cast<OPCUAWrapper*>(UA_Client_getConfig(client)->clientContext);
    if (!wrapper || (channel == UA_SECURECHANNELSTATE_OPEN && session == UA_SESSIONSTATE_ACTIVATED))
        return;
    if (wrapper->connected && !wrapper->m_sessionLost)
        wrapper->loseSession(UA_StatusCode_isBad(status) ? status : UA_STATUSCODE_BADCONNECTIONCLOSED);
}

void OPCUAWrapper::loseSession(UA_StatusCode status)
{
    connected = false;
    m_sessionLost = true;
    const QString name = statusName(status);
    VLOG_WARNING().noquote() << QStringLiteral("Соединение с сервером потеряно: %1").arg(name);
    emit signalConnectionLost(name);
    // A find-server dialog that shows this connection goes back to the search.
    emit signalErrorConnect();
}

// A server that stops answering without closing the connection (frozen, or the
// network gone) is only noticed by asking: while the loop runs, the server's
// state is read every second, and a read left unanswered for three seconds ends
// the session.
void OPCUAWrapper::watchSession()
{
    const auto now = std::chrono::steady_clock::now();
    if (m_aliveAsking) {
        if (now - m_aliveAsked < kSilenceLimit || !connected)
            return;
        m_aliveAsking = false;
        loseSession(UA_STATUSCODE_BADTIMEOUT);
        UA_Client_disconnectSecureChannel(client);
        return;
    }
    if (now - m_aliveAsked < kAliveInterval)
        return;
    m_aliveAsked = now;
    m_aliveAsking =
        UA_Client_readValueAttribute_async(client, UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_SERVERSTATUS_STATE),
                                           &OPCUAWrapper::aliveAnswered, this, nullptr) == UA_STATUSCODE_GOOD;
}

void OPCUAWrapper::aliveAnswered(UA_Client*, void* wrapper, UA_UInt32, UA_StatusCode, UA_DataValue*)
{
    static_cast<OPCUAWrapper*>(wrapper)->m_aliveAsking = false;
}

void OPCUAWrapper::setStatusIterate(bool status)
{
    statusIterate = status;
}

void OPCUAWrapper::clearClient()
{
    auto lock = lockClient();
    deleteClient();
}

int OPCUAWrapper::findServers(QString url)
{
    auto lock = lockClient();
    // An older client and its results are not needed any more.
    deleteClient();
    if (serverDescriptions)
        UA_Array_delete(serverDescriptions, serverDescriptionCount,
                        &UA_TYPES[UA_TYPES_APPLICATIONDESCRIPTION]);
    serverDescriptions = nullptr;
    serverDescriptionCount = 0;

    UA_ClientConfig config;
    std::memset(&config, 0, sizeof config);
    config.logging = &g_libraryLogger;
    UA_ClientConfig_setDefault(&config);
    config.timeout = kRequestTimeoutMs;
    config.clientContext = this;
    config.stateCallback = &OPCUAWrapper::stateChanged;
    client = UA_Client_newWithConfig(&config);
    m_clientAlive = client != nullptr;
    m_sessionLost = false;
    if (!client) {
        report(QStringLiteral("Не удалось найти сервер. Обнаружение сервера включено? Код ошибки %1")
                   .arg(statusName(UA_STATUSCODE_BADOUTOFMEMORY)),
               true);
        emit signalErrorConnect();
        return 1;
    }

    const UA_StatusCode status = UA_Client_findServers(client, url.toUtf8().constData(), 0, nullptr, 0,
                                                       nullptr, &serverDescriptionCount, &serverDescriptions);
    if (status == UA_STATUSCODE_GOOD) {
        QList<QString> servers;
        for (size_t i = 0; i < serverDescriptionCount; ++i) {
            const UA_ApplicationDescription& description = serverDescriptions[i];
            for (size_t j = 0; j < description.discoveryUrlsSize; ++j)
                servers << UA_StringToQString(description.discoveryUrls[j]);
        }
        servers.prepend(url);
        report("Поиск сервера успешно завершен.", false);
        emit signalSetServerDlgSearchDevice(servers);
        return 0;
    }

    report(QStringLiteral("Не удалось найти сервер. Обнаружение сервера включено? Код ошибки %1")
               .arg(statusName(status)),
           true);
    emit signalErrorConnect();
    return status == UA_STATUSCODE_BADCONNECTIONREJECTED && autoConnecting ? 2 : 1;
}

int OPCUAWrapper::getEndpoints(QString url)
{
    auto lock = lockClient();
    QList<QString> texts;
    if (!clientUsable()) {
        report(kNoServer, true);
        emit signalErrorConnect();
        return 1;
    }
    size_t size = 0;
    UA_EndpointDescription* endpoints = nullptr;
    const UA_StatusCode status = UA_Client_getEndpoints(client, url.toUtf8().constData(), &size, &endpoints);
    if (status != UA_STATUSCODE_GOOD) {
        const QString name = statusName(status);
        emit signalSetLogDlgSearchDevice(
            QStringLiteral("Не удалось получить конечные точки. Код ошибки %1").arg(name));
        VLOG_WARNING().noquote()
            << QStringLiteral("Не удалось подключиться к конечной точке. Код ошибки %1").arg(name);
        emit signalErrorConnect();
    }
    for (size_t i = 0; i < size; ++i) {
        const UA_EndpointDescription& endpoint = endpoints[i];
        // Only the gateway's own endpoints are offered.
        if (UA_StringToQString(endpoint.server.applicationUri) != QLatin1String(kGatewayApplicationUri))
            continue;
        texts << QStringLiteral("%1 (%2)").arg(UA_StringToQString(endpoint.securityPolicyUri),
                                               UA_SecurityModeToQString(endpoint.securityMode));
    }
    UA_Array_delete(endpoints, size, &UA_TYPES[UA_TYPES_ENDPOINTDESCRIPTION]);

    if (!texts.isEmpty()) {
        report("Получение конечных точек успешно завершено.", false);
        emit signalSetEndpointDlgSearchDevice(texts);
        return 0;
    }
    report("Не удалось найти конечные точки на сервере.", true);
    emit signalErrorConnect();
    return 1;
}

QString OPCUAWrapper::UA_StringToQString(UA_String string)
{
    if (string.length == 0)
        return QString();
    Q_ASSERT(string.data);
    const char* begin = reinterpret_cast<const char*>(string.data);
    const char* end = std::find(begin, begin + string.length, '\0');
    return QString::fromUtf8(begin, qsizetype(end - begin));
}

QString OPCUAWrapper::UA_SecurityModeToQString(UA_MessageSecurityMode mode)
{
    switch (mode) {
    case UA_MESSAGESECURITYMODE_NONE:
        return QStringLiteral("None");
    case UA_MESSAGESECURITYMODE_SIGN:
        return QStringLiteral("Sign");
    case UA_MESSAGESECURITYMODE_SIGNANDENCRYPT:
        return QStringLiteral("Sign and Encrypt");
    default:
        return QString();
    }
}

QList<QString> OPCUAWrapper::getVecNodes()
{
    return vecNodes;
}

// One call of a method of the channels object with a single string argument;
// the outputs are not used.
UA_StatusCode OPCUAWrapper::callMethod(const char* methodName, const QByteArray& argument)
{
    auto lock = lockClient();
    // A lost session stays lost: the user connects anew through the search, and
    // no call may open a new session behind the program's back.
    if (!clientUsable() || m_sessionLost)
        return UA_STATUSCODE_BADSERVERNOTCONNECTED;

    // Through a NUL-terminated text: the argument ends at the first NUL.
    UA_String text = UA_String_fromChars(argument.constData());
    UA_Variant input;
    UA_Variant_init(&input);
    UA_Variant_setScalarCopy(&input, &text, &UA_TYPES[UA_TYPES_STRING]);
    UA_String_clear(&text);

    QByteArray objectId(kChannelsObject);
    QByteArray methodId = objectId + '.' + methodName;
    size_t outputSize = 0;
    UA_Variant* output = nullptr;
    const UA_StatusCode status =
        UA_Client_call(client, UA_NODEID_STRING(2, objectId.data()), UA_NODEID_STRING(2, methodId.data()), 1,
                       &input, &outputSize, &output);
    if (status == UA_STATUSCODE_GOOD)
        UA_Array_delete(output, outputSize, &UA_TYPES[UA_TYPES_VARIANT]);
    UA_Variant_clear(&input);
    return status;
}

bool OPCUAWrapper::callNodeMethod(const char* methodName, const QList<QString>& args)
{
    const QString joined = args.join(QLatin1Char(';'));
    const UA_StatusCode status = callMethod(methodName, joined.toUtf8());
    if (status != UA_STATUSCODE_GOOD) {
        VLOG_WARNING().noquote() << QStringLiteral("Ошибка вызова метода %1, код ошибки - %2")
                                        .arg(QLatin1String(methodName))
                                        .arg(status);
        return false;
    }
    VLOG_INFO().noquote()
        << QStringLiteral("Вызов метода %1 успешно завершен").arg(QLatin1String(methodName));
    return true;
}

bool OPCUAWrapper::callAddNode(QList<QString> args)
{
    return callNodeMethod("addNode", args);
}

bool OPCUAWrapper::callEditNode(QList<QString> args)
{
    return callNodeMethod("editNode", args);
}

bool OPCUAWrapper::callDeleteNode(QList<QString> args)
{
    return callNodeMethod("deleteNode", args);
}

bool OPCUAWrapper::callMethodStartStopExchange()
{
    // The server is not asked for its state: the flag is what this program believes.
    const UA_StatusCode status = callMethod(exchangeRunning ? "stopExchange" : "startExchange", "emul");
    if (status != UA_STATUSCODE_GOOD) {
        VLOG_WARNING().noquote()
            << QStringLiteral("Ошибка вызова метода startExchange/stopExchange, код ошибки - %1").arg(status);
        return false;
    }
    exchangeRunning = !exchangeRunning;
    VLOG_INFO().noquote() << "Вызов метода startExchange/stopExchange успешно завершен";
    return true;
}
