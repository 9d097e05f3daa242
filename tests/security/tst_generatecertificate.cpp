#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <mbedtls/oid.h>
#include <mbedtls/x509_crt.h>

#include <arpa/inet.h>

namespace {

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

// A certificate file parsed with mbedTLS.
struct Certificate
{
    explicit Certificate(const QString& path)
    {
        mbedtls_x509_crt_init(&crt);
        const QByteArray d = readAll(path);
        ok =
            mbedtls_x509_crt_parse_der(&crt, reinterpret_cast<const unsigned char*>(d.data()), d.size()) == 0;
    }
    ~Certificate() { mbedtls_x509_crt_free(&crt); }

    // Key bits, hash and days of validity, then the subject attributes and
    // the alternative names.
    QStringList describe() const
    {
        mbedtls_md_type_t md = MBEDTLS_MD_NONE;
        mbedtls_pk_type_t pk;
        mbedtls_oid_get_sig_alg(&crt.sig_oid, &md, &pk);
        auto at = [](const mbedtls_x509_time& t) { return QDate(t.year, t.mon, t.day); };
        QStringList out{QString("%1 bits, %2, %3 days")
                            .arg(mbedtls_pk_get_bitlen(&crt.pk))
                            .arg(mbedtls_md_get_name(mbedtls_md_info_from_type(md)))
                            .arg(at(crt.valid_from).daysTo(at(crt.valid_to)))};
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

    bool ok = false;
    mbedtls_x509_crt crt;
};

} // namespace

// The certificate tool as the configurator's form runs it. That its pairs
// open an encrypted OPC UA session is shown by the secured connection test.
class TstGenerateCertificate : public QObject
{
    Q_OBJECT
private slots:
    void certificateCarriesWhatWasAsked();
    void badArgumentsAndFolders();
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
    const QString c = dir.filePath("cert");
    Certificate p(c + "/server_cert.der");
    QVERIFY(p.ok);
    QCOMPARE(p.describe(),
             QStringList({"2048 bits, SHA256, 30 days", "CN=OPCUA@my host", "O=ООО Тарн, ПК", "ST=Тверская",
                          "L=Тверь", "C=RU", "URI:urn:tarnopcua.server.application", "DNS:localhost",
                          "DNS:gw.local", "IP:127.0.0.1", "IP:::1"}));
    // What OPC UA peers ask of an application certificate.
    QVERIFY(mbedtls_x509_crt_check_key_usage(
                &p.crt, MBEDTLS_X509_KU_DIGITAL_SIGNATURE | MBEDTLS_X509_KU_NON_REPUDIATION |
                            MBEDTLS_X509_KU_KEY_ENCIPHERMENT | MBEDTLS_X509_KU_DATA_ENCIPHERMENT |
                            MBEDTLS_X509_KU_KEY_CERT_SIGN) == 0 &&
            mbedtls_x509_crt_check_extended_key_usage(&p.crt, MBEDTLS_OID_SERVER_AUTH,
                                                      MBEDTLS_OID_SIZE(MBEDTLS_OID_SERVER_AUTH)) == 0 &&
            mbedtls_x509_crt_check_extended_key_usage(&p.crt, MBEDTLS_OID_CLIENT_AUTH,
                                                      MBEDTLS_OID_SIZE(MBEDTLS_OID_CLIENT_AUTH)) == 0);
    const QString key = dir.filePath("key folder/server_key.pem");
    QVERIFY(readAll(key).startsWith("-----BEGIN") && !(QFile::permissions(key) & QFile::ReadOther));

    // A second run replaces the pair and leaves no temporary file.
    const QByteArray first = readAll(c + "/server_cert.der");
    QCOMPARE(runTool({"-CN=a", "-IP=10.1.2.3", "-size=1024", "-der=" + c, "-pem=" + c}).first, 0);
    QVERIFY(Certificate(c + "/server_cert.der").ok && readAll(c + "/server_cert.der") != first);
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
        {{d, k}, "-CN"},
        {{"-CN=a", d, k, "-size=1000"}, "key size"},
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

QTEST_GUILESS_MAIN(TstGenerateCertificate)
#include "tst_generatecertificate.moc"
