#include "tests/common/testfiles.h"

#include <QtTest>

#include <mbedtls/oid.h>
#include <mbedtls/x509_crt.h>

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

// What a certificate says: its subject and days of validity, then mbedTLS's
// own account from the signature on (it escapes the subject's Cyrillic).
QStringList describe(const QString& path)
{
    const QByteArray der = readFile(path);
    mbedtls_x509_crt crt;
    mbedtls_x509_crt_init(&crt);
    QStringList out;
    char info[4096] = {};
    if (mbedtls_x509_crt_parse_der(&crt, reinterpret_cast<const unsigned char*>(der.data()), der.size()) ==
        0) {
        for (const mbedtls_x509_name* n = &crt.subject; n && n->oid.p; n = n->next) {
            const char* type = "?";
            mbedtls_oid_get_attr_short_name(&n->oid, &type);
            out << type + QString("=") +
                       QString::fromUtf8(reinterpret_cast<const char*>(n->val.p), n->val.len);
        }
        auto at = [](const mbedtls_x509_time& t) { return QDate(t.year, t.mon, t.day); };
        out << QString("%1 days").arg(at(crt.valid_from).daysTo(at(crt.valid_to)));
        mbedtls_x509_crt_info(info, sizeof info, "", &crt);
    }
    mbedtls_x509_crt_free(&crt);
    const QString text = QString::fromLatin1(info);
    for (const QString& line : text.mid(text.indexOf("signed using")).split('\n', Qt::SkipEmptyParts))
        out << line.simplified();
    return out;
}

} // namespace

// The certificate tool as the configurator's form runs it. That its pairs
// open an encrypted OPC UA session is shown by the secured connection test.
class TstGenerateCertificate : public QObject
{
    Q_OBJECT
private slots:
    void certificateAsAskedAndRefusals();
};

void TstGenerateCertificate::certificateAsAskedAndRefusals()
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
    // The usages are what OPC UA peers ask of an application certificate;
    // ::1 is spelled the mbedTLS way.
    QCOMPARE(
        describe(c + "/server_cert.der"),
        QStringList({"CN=OPCUA@my host", "O=ООО Тарн, ПК", "ST=Тверская", "L=Тверь", "C=RU", "30 days",
                     "signed using : RSA with SHA-256", "RSA key size : 2048 bits",
                     "basic constraints : CA=false", "subject alt name :",
                     "uniformResourceIdentifier : urn:tarnopcua.server.application", "dNSName : localhost",
                     "dNSName : gw.local", "iPAddress : 127.0.0.1", "iPAddress : 00:00:00:00:00:00:00:01",
                     "key usage : Digital Signature, Non Repudiation, Key Encipherment, Data "
                     "Encipherment, Key Cert Sign",
                     "ext key usage : TLS Web Server Authentication, TLS Web Client Authentication"}));
    const QString key = dir.filePath("key folder/server_key.pem");
    QVERIFY(readFile(key).startsWith("-----BEGIN") && !(QFile::permissions(key) & QFile::ReadOther));

    const QByteArray first = readFile(c + "/server_cert.der");
    // Bad arguments and folders are refused, naming the culprit, and touch nothing.
    const QString d = "-der=" + c, k = "-pem=" + dir.filePath("key folder");
    const QList<QPair<QStringList, QString>> cases = {
        {{d, k}, "-CN"},
        {{"-CN=a", d, k, "-size=1000"}, "key size"},
        {{"-CN=a", d, k, "-C=RUS"}, "country"},
        {{"-CN=a", d, k, "-IP=1.2.3"}, "1.2.3"},
        {{"-CN=a", d, k, "-colour=red"}, "-colour"},
        {{"stray", "-CN=a", d, k}, "stray"},
        {{"-CN=a", "-der=" + dir.filePath("missing"), k}, "missing"},
        {{"-CN=a", d, k + "/server_key.pem"}, "server_key.pem"},
    };
    for (const auto& [arguments, mention] : cases) {
        const auto run = runTool(arguments);
        QVERIFY2(run.first > 0 && run.second.contains(mention),
                 qPrintable(arguments.join(' ') + ": " + run.second));
    }
    // No temporary file is left behind either.
    QCOMPARE(QDir(c).entryList(QDir::Files), QStringList({"server_cert.der"}));
    QCOMPARE(readFile(c + "/server_cert.der"), first);
}

QTEST_GUILESS_MAIN(TstGenerateCertificate)
#include "tst_generatecertificate.moc"
