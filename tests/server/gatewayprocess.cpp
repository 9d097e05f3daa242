#include "gatewayprocess.h"

#include "server/modbus/livevalue.h"

#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>
#include <open62541/plugin/create_certificate.h>
#include <open62541/plugin/log_stdout.h>

#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

#include <cmath>
#include <csignal>
#include <sys/prctl.h>

GatewayProcess::GatewayProcess()
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    // A test that crashes or is killed by its timeout takes the gateway with it.
    m_process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
}

GatewayProcess::~GatewayProcess()
{
    stop(2000);
}

QString GatewayProcess::program()
{
    return QStringLiteral(VELMORA_GATEWAY_PROGRAM);
}

quint16 GatewayProcess::freePort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost) ? probe.serverPort() : 0;
}

namespace {

// A client that keeps quiet in the test's output; 0 keeps the library's timeout.
UA_Client* newClient(UA_UInt32 timeoutMs)
{
    UA_ClientConfig config{};
    config.logging = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
    UA_ClientConfig_setDefault(&config);
    if (timeoutMs)
        config.timeout = timeoutMs;
    return UA_Client_newWithConfig(&config);
}

} // namespace

bool GatewayProcess::answers(const QString& url, std::chrono::steady_clock::time_point* answered)
{
    // The library's client waits out its whole timeout on a refused
    // connection; a port nobody listens on yet is told at once this way.
    const QUrl parsed(url);
    QTcpSocket probe;
    probe.connectToHost(parsed.host(), quint16(parsed.port()));
    if (!probe.waitForConnected(1000))
        return false;
    probe.abort();
    // Asked over a channel of its own, the answer is in before the client
    // closes the channel, which takes it a while.
    const Client client(newClient(1000), UA_Client_delete);
    const QByteArray at = url.toUtf8();
    size_t size = 0;
    UA_EndpointDescription* endpoints = nullptr;
    const UA_StatusCode rc =
        client && UA_Client_connectSecureChannel(client.get(), at.constData()) == UA_STATUSCODE_GOOD
            ? UA_Client_getEndpoints(client.get(), at.constData(), &size, &endpoints)
            : UA_STATUSCODE_BAD;
    if (answered)
        *answered = std::chrono::steady_clock::now();
    UA_Array_delete(endpoints, size, &UA_TYPES[UA_TYPES_ENDPOINTDESCRIPTION]);
    return rc == UA_STATUSCODE_GOOD && size > 0;
}

GatewayProcess::Client GatewayProcess::connect(const QString& url)
{
    Client c(newClient(0), [](UA_Client* c) {
        UA_Client_disconnect(c);
        UA_Client_delete(c);
    });
    if (c && UA_Client_connect(c.get(), url.toUtf8().constData()) != UA_STATUSCODE_GOOD)
        c.reset();
    return c;
}

GatewayProcess::Reading GatewayProcess::read(UA_Client* client, const QByteArray& utf8Id)
{
    UA_ReadValueId rvi{};
    rvi.nodeId = nodeId(utf8Id);
    rvi.attributeId = UA_ATTRIBUTEID_VALUE;
    UA_ReadRequest request{};
    request.nodesToRead = &rvi;
    request.nodesToReadSize = 1;
    request.timestampsToReturn = UA_TIMESTAMPSTORETURN_SOURCE;
    UA_ReadResponse response = UA_Client_Service_read(client, request);
    Reading out;
    out.number = std::nan("");
    if (response.resultsSize == 1) {
        const UA_DataValue& dv = response.results[0];
        out.status = dv.hasStatus ? dv.status : UA_STATUSCODE_GOOD;
        out.type = dv.value.type;
        out.source = dv.sourceTimestamp;
        if (dv.hasValue)
            CLiveValue::FromVariant(dv.value, out.number);
    }
    UA_ReadResponse_clear(&response);
    return out;
}

UA_StatusCode GatewayProcess::call(UA_Client* client, const char* method, const QByteArray& argument)
{
    UA_Variant in;
    UA_String s = {size_t(argument.size()),
                   reinterpret_cast<UA_Byte*>(const_cast<char*>(argument.constData()))};
    UA_Variant_setScalar(&in, &s, &UA_TYPES[UA_TYPES_STRING]);
    size_t outSize = 0;
    UA_Variant* out = nullptr;
    const UA_StatusCode rc = UA_Client_call(client, nodeId("Каналы"), nodeId(QByteArray("Каналы.") + method),
                                            1, &in, &outSize, &out);
    UA_Array_delete(out, outSize, &UA_TYPES[UA_TYPES_VARIANT]);
    return rc;
}

bool GatewayProcess::makeCertificate(const QString& uri, const QString& der, const QString& key)
{
    const QByteArray alt = "URI:" + uri.toUtf8();
    UA_String subject[] = {UA_STRING_STATIC("C=DE"), UA_STRING_STATIC("CN=velmora")};
    UA_String altNames[] = {UA_STRING_STATIC("DNS:localhost"), UA_STRING(const_cast<char*>(alt.constData()))};
    UA_ByteString outKey = UA_BYTESTRING_NULL, outCert = UA_BYTESTRING_NULL;
    UA_Logger* quiet = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
    bool ok = UA_CreateCertificate(quiet, subject, 2, altNames, 2, UA_CERTIFICATEFORMAT_DER, nullptr, &outKey,
                                   &outCert) == UA_STATUSCODE_GOOD;
    quiet->clear(quiet);
    for (const auto& [path, bytes] : {std::pair(der, &outCert), std::pair(key, &outKey)}) {
        QFile file(path);
        ok = ok && file.open(QIODevice::WriteOnly) &&
             file.write(reinterpret_cast<const char*>(bytes->data), qint64(bytes->length)) ==
                 qint64(bytes->length);
    }
    UA_ByteString_clear(&outKey);
    UA_ByteString_clear(&outCert);
    return ok;
}

QString GatewayProcess::url() const
{
    return QStringLiteral("opc.tcp://127.0.0.1:%1").arg(m_port);
}

QString GatewayProcess::output()
{
    // Lines printed just before the call are still in the pipe.
    while (running() && m_process.waitForReadyRead(100))
        m_output += QString::fromUtf8(m_process.readAll());
    m_output += QString::fromUtf8(m_process.readAll());
    return m_output;
}

bool GatewayProcess::start(const Options& o, int timeoutMs)
{
    stop();
    m_output.clear();
    // The port may be taken between the probe and the start: try a few.
    for (int attempt = 0; attempt < 3; ++attempt) {
        m_port = o.port ? o.port : freePort();
        const auto spawned = std::chrono::steady_clock::now();
        m_process.start(program(),
                        {o.config, QString::number(m_port), o.logLevel, o.anonymous ? "true" : "false",
                         o.certificate, o.privateKey, o.trustFolder});
        if (!m_process.waitForStarted(5000)) {
            m_output += QStringLiteral("cannot start %1: %2\n").arg(program(), m_process.errorString());
            return false;
        }
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < timeoutMs && running()) {
            std::chrono::steady_clock::time_point answered;
            if (answers(url(), &answered)) {
                m_startMs = std::chrono::duration<double, std::milli>(answered - spawned).count();
                return true;
            }
            // Drains the pipe meanwhile, so that a chatty gateway never blocks on it.
            m_process.waitForReadyRead(50);
        }
        output();
        if (running()) {
            stop();
            m_output += QStringLiteral("no answer within %1 ms\n").arg(timeoutMs);
            return false;
        }
        if (!m_output.contains("cannot open port"))
            return false;
    }
    return false;
}

int GatewayProcess::stop(int timeoutMs)
{
    if (!running())
        return -1;
    m_process.terminate();
    if (!m_process.waitForFinished(timeoutMs)) {
        m_process.kill();
        m_process.waitForFinished(timeoutMs);
        output();
        return -1;
    }
    output();
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}
