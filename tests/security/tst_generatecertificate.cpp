#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <mbedtls/ctr_drbg.h>
#include <mbedtls/entropy.h>
#include <mbedtls/oid.h>
#include <mbedtls/pk.h>
#include <mbedtls/x509_crt.h>

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/plugin/log_stdout.h>
#include <open62541/server.h>
#include <open62541/server_config_default.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

namespace {

const char* const kUri = "urn:tarnopcua.server.application";

struct ToolRun
{
    int code = -1;
    QString err;
};

ToolRun runTool(const QStringList& arguments)
{
    QProcess p;
    p.start(QString(VELMORA_BIN_DIR) + "/generate_certificate", arguments);
    if (!p.waitForFinished(120000))
        return {};
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAllStandardError())};
}

QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// A parsed certificate and key, freed on scope exit.
struct Parsed
{
    Parsed()
    {
        mbedtls_x509_crt_init(&crt);
        mbedtls_pk_init(&key);
        mbedtls_entropy_init(&entropy);
        mbedtls_ctr_drbg_init(&drbg);
        mbedtls_ctr_drbg_seed(&drbg, mbedtls_entropy_func, &entropy, nullptr, 0);
    }
    ~Parsed()
    {
        mbedtls_x509_crt_free(&crt);
        mbedtls_pk_free(&key);
        mbedtls_ctr_drbg_free(&drbg);
        mbedtls_entropy_free(&entropy);
    }
    bool load(const QByteArray& der, QByteArray pem)
    {
        pem.append('\0');
        return mbedtls_x509_crt_parse_der(&crt, reinterpret_cast<const unsigned char*>(der.constData()),
                                          size_t(der.size())) == 0 &&
               mbedtls_pk_parse_key(&key, reinterpret_cast<const unsigned char*>(pem.constData()),
                                    size_t(pem.size()), nullptr, 0, mbedtls_ctr_drbg_random, &drbg) == 0;
    }
    // "CN=value" per attribute in certificate order, values as UTF-8 text.
    QStringList subject()
    {
        QStringList out;
        for (const mbedtls_x509_name* n = &crt.subject; n && n->oid.p; n = n->next) {
            const char* type = "?";
            mbedtls_oid_get_attr_short_name(&n->oid, &type);
            out << QString(type) + "=" +
                       QString::fromUtf8(reinterpret_cast<const char*>(n->val.p), int(n->val.len));
        }
        return out;
    }
    // "URI:...", "DNS:...", "IP:..." in certificate order.
    QStringList alternativeNames()
    {
        QStringList out;
        for (const mbedtls_x509_sequence* s = &crt.subject_alt_names; s && s->buf.p; s = s->next) {
            mbedtls_x509_subject_alternative_name san;
            if (mbedtls_x509_parse_subject_alt_name(&s->buf, &san) != 0) {
                out << "<unparsed>";
                continue;
            }
            const auto& b = san.san.unstructured_name;
            const QByteArray raw(reinterpret_cast<const char*>(b.p), int(b.len));
            if (san.type == MBEDTLS_X509_SAN_UNIFORM_RESOURCE_IDENTIFIER)
                out << "URI:" + QString::fromUtf8(raw);
            else if (san.type == MBEDTLS_X509_SAN_DNS_NAME)
                out << "DNS:" + QString::fromUtf8(raw);
            else if (san.type == MBEDTLS_X509_SAN_IP_ADDRESS) {
                char text[INET6_ADDRSTRLEN] = {};
                inet_ntop(raw.size() == 4 ? AF_INET : AF_INET6, raw.constData(), text, sizeof text);
                out << QString("IP:") + text;
            }
            mbedtls_x509_free_subject_alt_name(&san);
        }
        return out;
    }
    mbedtls_md_type_t hash()
    {
        mbedtls_md_type_t md = MBEDTLS_MD_NONE;
        mbedtls_pk_type_t pk = MBEDTLS_PK_NONE;
        mbedtls_oid_get_sig_alg(&crt.sig_oid, &md, &pk);
        return md;
    }
    qint64 validityDays()
    {
        auto at = [](const mbedtls_x509_time& t) {
            return QDateTime(QDate(t.year, t.mon, t.day), QTime(t.hour, t.min, t.sec), Qt::UTC);
        };
        return at(crt.valid_from).daysTo(at(crt.valid_to));
    }

    mbedtls_x509_crt crt;
    mbedtls_pk_context key;
    mbedtls_entropy_context entropy;
    mbedtls_ctr_drbg_context drbg;
};

quint16 freePort()
{
    const int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    quint16 port = 0;
    if (bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) == 0)
        port = ntohs(a.sin_port);
    close(s);
    return port;
}

UA_ByteString byteString(const QByteArray& b)
{
    UA_ByteString s;
    s.length = size_t(b.size());
    s.data = reinterpret_cast<UA_Byte*>(const_cast<char*>(b.constData()));
    return s;
}

} // namespace

class TstGenerateCertificate : public QObject
{
    Q_OBJECT
private slots:
    void certificateCarriesWhatWasAsked();
    void otherSizesAndHashes();
    void badArgumentsAndFolders();
    void opcUaAcceptsItForBasic256Sha256();
};

void TstGenerateCertificate::certificateCarriesWhatWasAsked()
{
    QTemporaryDir dir;
    QDir(dir.path()).mkdir("cert");
    QDir(dir.path()).mkdir("key folder");
    // The words as the shell hands them over from the configurator's line:
    // blanks inside values split them, empty values stay.
    const ToolRun run =
        runTool({"-CN=OPCUA@my", "host", "-O=ООО", "Тарн,", "ПК", "-OU=", "-ST=Тверская", "-L=Тверь", "-C=RU",
                 "-DNS=localhost,gw.local", "-IP=127.0.0.1,::1", "-size=2048", "-alg=Sha256", "-val=30",
                 "-der=" + dir.filePath("cert"), "-pem=" + dir.path() + "/key", "folder"});
    QCOMPARE(run.err, QString());
    QCOMPARE(run.code, 0);

    Parsed p;
    QVERIFY(p.load(readAll(dir.filePath("cert/server_cert.der")),
                   readAll(dir.filePath("key folder/server_key.pem"))));
    QCOMPARE(mbedtls_pk_check_pair(&p.crt.pk, &p.key, mbedtls_ctr_drbg_random, &p.drbg), 0);
    QCOMPARE(int(mbedtls_pk_get_bitlen(&p.key)), 2048);
    QCOMPARE(p.hash(), MBEDTLS_MD_SHA256);
    QCOMPARE(p.validityDays(), 30);
    QCOMPARE(p.crt.version, 3);
    QCOMPARE(p.subject(),
             QStringList({"CN=OPCUA@my host", "O=ООО Тарн, ПК", "ST=Тверская", "L=Тверь", "C=RU"}));
    QCOMPARE(p.alternativeNames(), QStringList({QString("URI:") + kUri, "DNS:localhost", "DNS:gw.local",
                                                "IP:127.0.0.1", "IP:::1"}));

    const unsigned usages = MBEDTLS_X509_KU_DIGITAL_SIGNATURE | MBEDTLS_X509_KU_NON_REPUDIATION |
                            MBEDTLS_X509_KU_KEY_ENCIPHERMENT | MBEDTLS_X509_KU_DATA_ENCIPHERMENT |
                            MBEDTLS_X509_KU_KEY_CERT_SIGN;
    QCOMPARE(mbedtls_x509_crt_check_key_usage(&p.crt, usages), 0);
    QCOMPARE(mbedtls_x509_crt_check_extended_key_usage(&p.crt, MBEDTLS_OID_SERVER_AUTH,
                                                       MBEDTLS_OID_SIZE(MBEDTLS_OID_SERVER_AUTH)),
             0);
    QCOMPARE(mbedtls_x509_crt_check_extended_key_usage(&p.crt, MBEDTLS_OID_CLIENT_AUTH,
                                                       MBEDTLS_OID_SIZE(MBEDTLS_OID_CLIENT_AUTH)),
             0);

    // Self-signed: it verifies with itself as the only trusted certificate.
    uint32_t flags = 0;
    QCOMPARE(mbedtls_x509_crt_verify(&p.crt, &p.crt, nullptr, nullptr, &flags, nullptr, nullptr), 0);

    // A second run replaces the pair with a new one.
    const QByteArray first = readAll(dir.filePath("cert/server_cert.der"));
    QCOMPARE(
        runTool({"-CN=x", "-DNS=", "-IP=", "-der=" + dir.filePath("cert"), "-pem=" + dir.filePath("cert")})
            .code,
        0);
    QVERIFY(readAll(dir.filePath("cert/server_cert.der")) != first);
    QVERIFY(!QFile::exists(dir.filePath("cert/server_cert.der.tmp")));
}

void TstGenerateCertificate::otherSizesAndHashes()
{
    QTemporaryDir dir;
    const ToolRun run =
        runTool({"-CN=a", "-O=b", "-OU=", "-ST=", "-L=", "-C=", "-DNS=", "-IP=10.1.2.3", "-size=1024",
                 "-alg=Sha512", "-val=1", "-der=" + dir.path(), "-pem=" + dir.path()});
    QCOMPARE(run.code, 0);
    Parsed p;
    QVERIFY(p.load(readAll(dir.filePath("server_cert.der")), readAll(dir.filePath("server_key.pem"))));
    QCOMPARE(int(mbedtls_pk_get_bitlen(&p.key)), 1024);
    QCOMPARE(p.hash(), MBEDTLS_MD_SHA512);
    QCOMPARE(p.validityDays(), 1);
    QCOMPARE(p.subject(), QStringList({"CN=a", "O=b"}));
    QCOMPARE(p.alternativeNames(), QStringList({QString("URI:") + kUri, "IP:10.1.2.3"}));
    QCOMPARE(QFile::permissions(dir.filePath("server_key.pem")) & (QFile::ReadOther | QFile::ReadGroup),
             QFile::Permissions());
}

void TstGenerateCertificate::badArgumentsAndFolders()
{
    QTemporaryDir dir;
    const QString d = "-der=" + dir.path(), k = "-pem=" + dir.path();
    const QList<QPair<QStringList, QString>> cases = {
        {{}, "-CN"},
        {{"-CN=a", d}, "-pem"},
        {{"-CN=", d, k}, "-CN"},
        {{"-CN=a", d, k, "-size=1000"}, "key size"},
        {{"-CN=a", d, k, "-alg=Md5"}, "hash"},
        {{"-CN=a", d, k, "-val=0"}, "validity"},
        {{"-CN=a", d, k, "-val=x"}, "validity"},
        {{"-CN=a", d, k, "-C=RUS"}, "country"},
        {{"-CN=a", d, k, "-IP=1.2.3"}, "1.2.3"},
        {{"-CN=a", d, k, "-DNS=bad/name"}, "bad/name"},
        {{"-CN=a", d, k, "-colour=red"}, "-colour"},
        {{"-CN=a", "-CN=b", d, k}, "twice"},
        {{"stray", "-CN=a", d, k}, "stray"},
        {{"-CN=a", "-der=" + dir.filePath("missing"), k}, "missing"},
    };
    for (const auto& [arguments, mention] : cases) {
        const ToolRun run = runTool(arguments);
        QVERIFY2(run.code > 0, qPrintable(arguments.join(' ')));
        QVERIFY2(run.err.contains(mention), qPrintable(run.err));
    }

    // A file where a folder should be, and nothing left behind by failures.
    QFile file(dir.filePath("plain"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    const ToolRun run = runTool({"-CN=a", d, "-pem=" + file.fileName()});
    QVERIFY(run.code > 0);
    QVERIFY(run.err.contains("plain"));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList({"plain"}));
}

// Server and client each get a pair from the tool, trust each other's
// certificate and open a Basic256Sha256 SignAndEncrypt session on loopback.
void TstGenerateCertificate::opcUaAcceptsItForBasic256Sha256()
{
    QTemporaryDir dir;
    for (const char* side : {"server", "client"}) {
        QVERIFY(QDir(dir.path()).mkdir(side));
        const QString folder = dir.filePath(side);
        QCOMPARE(runTool({"-CN=" + QString(side), "-O=Tarn", "-DNS=localhost", "-IP=127.0.0.1", "-size=2048",
                          "-alg=Sha256", "-val=10", "-der=" + folder, "-pem=" + folder})
                     .code,
                 0);
    }
    const QByteArray serverCert = readAll(dir.filePath("server/server_cert.der"));
    const QByteArray serverKey = readAll(dir.filePath("server/server_key.pem"));
    const QByteArray clientCert = readAll(dir.filePath("client/server_cert.der"));
    const QByteArray clientKey = readAll(dir.filePath("client/server_key.pem"));

    const quint16 port = freePort();
    QVERIFY(port != 0);
    UA_ServerConfig sc;
    std::memset(&sc, 0, sizeof sc);
    sc.logging = UA_Log_Stdout_new(UA_LOGLEVEL_WARNING);
    UA_ByteString cert = byteString(serverCert), key = byteString(serverKey),
                  trusted = byteString(clientCert);
    QCOMPARE(UA_ServerConfig_setDefaultWithSecurityPolicies(&sc, port, &cert, &key, &trusted, 1, nullptr, 0,
                                                            nullptr, 0),
             UA_STATUSCODE_GOOD);
    UA_String_clear(&sc.applicationDescription.applicationUri);
    sc.applicationDescription.applicationUri = UA_STRING_ALLOC(kUri);
    const UA_String basic256Sha256 =
        UA_STRING_STATIC("http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256");
    bool hasPolicy = false;
    for (size_t i = 0; i < sc.securityPoliciesSize; ++i)
        hasPolicy |= UA_String_equal(&sc.securityPolicies[i].policyUri, &basic256Sha256);
    UA_Server* server = UA_Server_newWithConfig(&sc);
    QVERIFY(server);
    QVERIFY(hasPolicy);

    UA_ClientConfig cc;
    std::memset(&cc, 0, sizeof cc);
    cc.logging = UA_Log_Stdout_new(UA_LOGLEVEL_WARNING);
    UA_ByteString ccert = byteString(clientCert), ckey = byteString(clientKey),
                  strust = byteString(serverCert);
    const UA_StatusCode configured =
        UA_ClientConfig_setDefaultEncryption(&cc, ccert, ckey, &strust, 1, nullptr, 0);
    cc.securityMode = UA_MESSAGESECURITYMODE_SIGNANDENCRYPT;
    UA_String_clear(&cc.securityPolicyUri);
    UA_String_copy(&basic256Sha256, &cc.securityPolicyUri);
    UA_String_clear(&cc.clientDescription.applicationUri);
    cc.clientDescription.applicationUri = UA_STRING_ALLOC(kUri);
    UA_Client* client = UA_Client_newWithConfig(&cc);

    UA_StatusCode connected = UA_Server_run_startup(server);
    if (connected == UA_STATUSCODE_GOOD) {
        std::atomic<bool> running{true};
        std::thread loop([&] {
            while (running)
                UA_Server_run_iterate(server, true);
        });
        const QByteArray url = QString("opc.tcp://127.0.0.1:%1").arg(port).toUtf8();
        connected =
            configured == UA_STATUSCODE_GOOD ? UA_Client_connect(client, url.constData()) : configured;
        UA_Client_disconnect(client);
        running = false;
        loop.join();
        UA_Server_run_shutdown(server);
    }
    UA_Client_delete(client);
    UA_Server_delete(server);
    QCOMPARE(QString(UA_StatusCode_name(connected)), QString(UA_StatusCode_name(UA_STATUSCODE_GOOD)));
}

QTEST_GUILESS_MAIN(TstGenerateCertificate)
#include "tst_generatecertificate.moc"
