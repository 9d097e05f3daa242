#include "gatewayprocess.h"

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/plugin/log_stdout.h>

#include <QElapsedTimer>

#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

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
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return 0;
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    socklen_t len = sizeof addr;
    quint16 port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0)
        port = ntohs(addr.sin_port);
    ::close(fd);
    return port;
}

bool GatewayProcess::answers(const QString& url)
{
    UA_ClientConfig config{};
    config.logging = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
    UA_ClientConfig_setDefault(&config);
    config.timeout = 1000;
    UA_Client* client = UA_Client_newWithConfig(&config);
    if (!client)
        return false;
    size_t size = 0;
    UA_EndpointDescription* endpoints = nullptr;
    const UA_StatusCode rc = UA_Client_getEndpoints(client, url.toUtf8().constData(), &size, &endpoints);
    UA_Array_delete(endpoints, size, &UA_TYPES[UA_TYPES_ENDPOINTDESCRIPTION]);
    UA_Client_delete(client);
    return rc == UA_STATUSCODE_GOOD && size > 0;
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
            if (answers(url()))
                return true;
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
