#include <QDateTime>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <mbedtls/ctr_drbg.h>
#include <mbedtls/entropy.h>
#include <mbedtls/oid.h>
#include <mbedtls/x509_crt.h>

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/plugin/log_stdout.h>
#include <open62541/server.h>
#include <open62541/server_config_default.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace {

const char* const kUri = "urn:tarnopcua.server.application";

// Exit code and standard error of one run of the tool.
QPair<int, QString> runTool(const QStringList& arguments)
{
    QProcess p;
    p.start(QString(VELMORA_BIN_DIR) + "/generate_certificate", arguments);
    if (!p.waitForFinished(120000) || p.exitStatus() != QProcess::NormalExit)
        return {-1, "crashed or hung"};
    return {p.exitCode(), QString::fromUtf8(p.readAllStandardError())};
}

QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// The certificate and key of one folder pair, parsed with mbedTLS.
struct Parsed
{
    Parsed(const QString& der, const QString& pem)
    {
        mbedtls_x509_crt_init(&crt);
        mbedtls_pk_init(&key);
        mbedtls_entropy_init(&entropy);
        mbedtls_ctr_drbg_init(&drbg);
        mbedtls_ctr_drbg_seed(&drbg, mbedtls_entropy_func, &entropy, nullptr, 0);
        const QByteArray d = readAll(der), k = readAll(pem) + '\0';
        ok = mbedtls_x509_crt_parse_der(&crt, reinterpret_cast<const unsigned char*>(d.data()), d.size()) ==
                 0 &&
             mbedtls_pk_parse_key(&key, reinterpret_cast<const unsigned char*>(k.data()), k.size(), nullptr,
                                  0, mbedtls_ctr_drbg_random, &drbg) == 0 &&
             mbedtls_pk_check_pair(&crt.pk, &key, mbedtls_ctr_drbg_random, &drbg) == 0;
    }
    ~Parsed()
    {
        mbedtls_x509_crt_free(&crt);
        mbedtls_pk_free(&key);
        mbedtls_ctr_drbg_free(&drbg);
        mbedtls_entropy_free(&entropy);
    }
    // Subject attributes, then alternative names.
    QStringList names() const
    {
        QStringList out;
        for (const mbedtls_x509_name* n = &crt.subject; n && n->oid.p; n = n->next) {
            const char* type = "?";
            mbedtls_oid_get_attr_short_name(&n->oid, &type);
            out << type + QString("=") +
                       QString::fromUtf8(reinterpret_cast<const char*>(n->val.p), n->val.len);
        }
        for (const mbedtls_x509_sequence* s = &crt.subject_alt_names; s && s->buf.p; s = s->next) {
            mbedtls_x509_subject_alternative_name san;
            if (mbedtls_x509_parse_subject_alt_name(&s->buf, &san) != 0)
                return {"<unparsed>"};
            const auto& b = san.san.unstructured_name;
            const QByteArray raw(reinterpret_cast<const char*>(b.p), b.len);
            char ip[INET6_ADDRSTRLEN] = {};
            if (san.type == MBEDTLS_X509_SAN_IP_ADDRESS)
                out << QString("IP:") +
                           inet_ntop(raw.size() == 4 ? AF_INET : AF_INET6, raw.data(), ip, sizeof ip);
            else
                out << (san.type == MBEDTLS_X509_SAN_DNS_NAME ? "DNS:" : "URI:") + QString::fromUtf8(raw);
        }
        return out;
    }
    // Key bits, hash and days of validity, in one line to compare.
    QString form() const
    {
        mbedtls_md_type_t md = MBEDTLS_MD_NONE;
        mbedtls_pk_type_t pk;
        mbedtls_oid_get_sig_alg(&crt.sig_oid, &md, &pk);
        auto at = [](const mbedtls_x509_time& t) { return QDate(t.year, t.mon, t.day); };
        return QString("%1 bits, %2, %3 days")
            .arg(mbedtls_pk_get_bitlen(&key))
            .arg(mbedtls_md_get_name(mbedtls_md_info_from_type(md)))
            .arg(at(crt.valid_from).daysTo(at(crt.valid_to)));
    }

    bool ok = false;
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
    const bool bound = bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
                       getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) == 0;
    close(s);
    return bound ? ntohs(a.sin_port) : 0;
}

UA_ByteString byteString(const QByteArray& b)
{
    return {size_t(b.size()), reinterpret_cast<UA_Byte*>(const_cast<char*>(b.constData()))};
}

} // namespace

class TstGenerateCertificate : public QObject
{
    Q_OBJECT
private slots:
    void certificateCarriesWhatWasAsked();
    void badArgumentsAndFolders();
    void opcUaAcceptsItForBasic256Sha256();
};

void TstGenerateCertificate::certificateCarriesWhatWasAsked()
{
    QTemporaryDir dir;
    QDir(dir.path()).mkdir("cert");
    QDir(dir.path()).mkdir("key folder");
    // The words as the shell hands over the configurator's unquoted line:
    // blanks inside values split them, empty values stay.
    const auto run =
        runTool({"-CN=OPCUA@my", "host", "-O=ООО", "Тарн,", "ПК", "-OU=", "-ST=Тверская", "-L=Тверь", "-C=RU",
                 "-DNS=localhost,gw.local", "-IP=127.0.0.1,::1", "-size=2048", "-alg=Sha256", "-val=30",
                 "-der=" + dir.filePath("cert"), "-pem=" + dir.path() + "/key", "folder"});
    QCOMPARE(run, qMakePair(0, QString()));
    Parsed p(dir.filePath("cert/server_cert.der"), dir.filePath("key folder/server_key.pem"));
    QVERIFY(p.ok);
    QCOMPARE(p.form(), QString("2048 bits, SHA256, 30 days"));
    QCOMPARE(p.names(), QStringList({"CN=OPCUA@my host", "O=ООО Тарн, ПК", "ST=Тверская", "L=Тверь", "C=RU",
                                     QString("URI:") + kUri, "DNS:localhost", "DNS:gw.local", "IP:127.0.0.1",
                                     "IP:::1"}));
    QCOMPARE(mbedtls_x509_crt_check_key_usage(
                 &p.crt, MBEDTLS_X509_KU_DIGITAL_SIGNATURE | MBEDTLS_X509_KU_NON_REPUDIATION |
                             MBEDTLS_X509_KU_KEY_ENCIPHERMENT | MBEDTLS_X509_KU_DATA_ENCIPHERMENT |
                             MBEDTLS_X509_KU_KEY_CERT_SIGN),
             0);
    QCOMPARE(mbedtls_x509_crt_check_extended_key_usage(&p.crt, MBEDTLS_OID_SERVER_AUTH,
                                                       MBEDTLS_OID_SIZE(MBEDTLS_OID_SERVER_AUTH)) |
                 mbedtls_x509_crt_check_extended_key_usage(&p.crt, MBEDTLS_OID_CLIENT_AUTH,
                                                           MBEDTLS_OID_SIZE(MBEDTLS_OID_CLIENT_AUTH)),
             0);
    uint32_t flags = 0; // self-signed: it verifies against itself alone
    QCOMPARE(mbedtls_x509_crt_verify(&p.crt, &p.crt, nullptr, nullptr, &flags, nullptr, nullptr), 0);
    QVERIFY(!(QFile::permissions(dir.filePath("key folder/server_key.pem")) & QFile::ReadOther));

    // Another size and hash; a second run replaces the pair and leaves no temporary file.
    const QByteArray first = readAll(dir.filePath("cert/server_cert.der"));
    const QString c = dir.filePath("cert");
    QCOMPARE(runTool({"-CN=a", "-O=", "-C=", "-DNS=", "-IP=10.1.2.3", "-size=1024", "-alg=Sha512", "-val=1",
                      "-der=" + c, "-pem=" + c})
                 .first,
             0);
    Parsed q(c + "/server_cert.der", c + "/server_key.pem");
    QVERIFY(q.ok && readAll(c + "/server_cert.der") != first);
    QCOMPARE(q.form(), QString("1024 bits, SHA512, 1 days"));
    QCOMPARE(q.names(), QStringList({"CN=a", QString("URI:") + kUri, "IP:10.1.2.3"}));
    QCOMPARE(QDir(c).entryList(QDir::Files), QStringList({"server_cert.der", "server_key.pem"}));
}

void TstGenerateCertificate::badArgumentsAndFolders()
{
    QTemporaryDir dir;
    QFile file(dir.filePath("plain"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    const QString d = "-der=" + dir.path(), k = "-pem=" + dir.path();
    const QList<QPair<QStringList, QString>> cases = {
        {{}, "-CN"},
        {{"-CN=a", d}, "-pem"},
        {{"-CN=a", d, k, "-size=1000"}, "key size"},
        {{"-CN=a", d, k, "-alg=Md5"}, "hash"},
        {{"-CN=a", d, k, "-C=RUS"}, "country"},
        {{"-CN=a", d, k, "-IP=1.2.3"}, "1.2.3"},
        {{"-CN=a", d, k, "-colour=red"}, "-colour"},
        {{"stray", "-CN=a", d, k}, "stray"},
        {{"-CN=a", "-der=" + dir.filePath("missing"), k}, "missing"},
        {{"-CN=a", d, "-pem=" + file.fileName()}, "plain"},
    };
    for (const auto& [arguments, mention] : cases) {
        const auto run = runTool(arguments);
        QVERIFY2(run.first > 0 && run.second.contains(mention),
                 qPrintable(arguments.join(' ') + ": " + run.second));
    }
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList({"plain"}));
}

// Server and client each get a pair from the tool, trust each other's
// certificate and open a Basic256Sha256 SignAndEncrypt session on loopback.
void TstGenerateCertificate::opcUaAcceptsItForBasic256Sha256()
{
    QTemporaryDir dir;
    for (const char* side : {"server", "client"}) {
        QVERIFY(QDir(dir.path()).mkdir(side));
        const QString f = dir.filePath(side);
        QCOMPARE(
            runTool({"-CN=" + QString(side), "-DNS=localhost", "-IP=127.0.0.1", "-der=" + f, "-pem=" + f})
                .first,
            0);
    }
    auto file = [&](const char* name) { return readAll(dir.filePath(name)); };
    const QByteArray serverCert = file("server/server_cert.der"), serverKey = file("server/server_key.pem");
    const QByteArray clientCert = file("client/server_cert.der"), clientKey = file("client/server_key.pem");
    const quint16 port = freePort();
    QVERIFY(port != 0);

    UA_ServerConfig sc{};
    sc.logging = UA_Log_Stdout_new(UA_LOGLEVEL_WARNING);
    UA_ByteString cert = byteString(serverCert), key = byteString(serverKey),
                  trusted = byteString(clientCert);
    QCOMPARE(UA_ServerConfig_setDefaultWithSecurityPolicies(&sc, port, &cert, &key, &trusted, 1, nullptr, 0,
                                                            nullptr, 0),
             UA_STATUSCODE_GOOD);
    UA_String_clear(&sc.applicationDescription.applicationUri);
    sc.applicationDescription.applicationUri = UA_STRING_ALLOC(kUri);
    UA_Server* server = UA_Server_newWithConfig(&sc);

    UA_ClientConfig cc{};
    cc.logging = UA_Log_Stdout_new(UA_LOGLEVEL_WARNING);
    UA_ByteString ccert = byteString(clientCert), ckey = byteString(clientKey),
                  strust = byteString(serverCert);
    UA_StatusCode status = UA_ClientConfig_setDefaultEncryption(&cc, ccert, ckey, &strust, 1, nullptr, 0);
    cc.securityMode = UA_MESSAGESECURITYMODE_SIGNANDENCRYPT;
    UA_String_clear(&cc.securityPolicyUri);
    cc.securityPolicyUri = UA_STRING_ALLOC("http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256");
    UA_String_clear(&cc.clientDescription.applicationUri);
    cc.clientDescription.applicationUri = UA_STRING_ALLOC(kUri);
    UA_Client* client = UA_Client_newWithConfig(&cc);

    if (status == UA_STATUSCODE_GOOD)
        status = UA_Server_run_startup(server);
    if (status == UA_STATUSCODE_GOOD) {
        std::atomic<bool> running{true};
        std::thread loop([&] {
            while (running)
                UA_Server_run_iterate(server, true);
        });
        status = UA_Client_connect(client, qPrintable(QString("opc.tcp://127.0.0.1:%1").arg(port)));
        UA_Client_disconnect(client);
        running = false;
        loop.join();
        UA_Server_run_shutdown(server);
    }
    UA_Client_delete(client);
    UA_Server_delete(server);
    QCOMPARE(QString(UA_StatusCode_name(status)), QString("Good"));
}

QTEST_GUILESS_MAIN(TstGenerateCertificate)
#include "tst_generatecertificate.moc"
