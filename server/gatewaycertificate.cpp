#include "server/gatewaycertificate.h"

#include <mbedtls/ctr_drbg.h>
#include <mbedtls/entropy.h>
#include <mbedtls/pk.h>
#include <mbedtls/x509_crt.h>
#include <open62541/plugin/create_certificate.h>
#include <open62541/plugin/log_stdout.h>
#include <open62541/util.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char kCertificateName[] = "gateway_cert.der";
const char kKeyName[] = "gateway_key.der";
// Certificates and keys are a few kilobytes; anything far larger is not one.
const off_t kMaxFileBytes = 64 * 1024;

// Written beside the target and renamed over it, so that a reader never sees
// half a key; the key is readable by its owner only.
bool WriteAll(const std::string& path, const UA_ByteString& bytes, mode_t mode)
{
    const std::string temporary = path + ".new";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0)
        return false;
    bool ok = ::write(fd, bytes.data, bytes.length) == ssize_t(bytes.length) && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    ok = ok && ::rename(temporary.c_str(), path.c_str()) == 0;
    if (!ok)
        ::unlink(temporary.c_str());
    return ok;
}

bool MakeFolders(const std::string& folder)
{
    for (std::size_t slash = 1; slash != std::string::npos;) {
        slash = folder.find('/', slash + 1);
        const std::string part = folder.substr(0, slash);
        if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST)
            return false;
    }
    struct stat st;
    return ::stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string HostName()
{
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) != 0 || !name[0])
        return "localhost";
    return name;
}

} // namespace

CGatewayCertificate::~CGatewayCertificate()
{
    UA_ByteString_clear(&m_certificate);
    UA_ByteString_clear(&m_key);
}

std::string CGatewayCertificate::DefaultFolder()
{
    const char* home = std::getenv("HOME");
    std::string base = home && *home ? home : "";
    if (base.empty()) {
        // A service account may run without HOME.
        if (const passwd* pw = ::getpwuid(::getuid()))
            base = pw->pw_dir ? pw->pw_dir : "";
    }
    return base + "/Documents/TARN/OPC UA/pki";
}

bool CGatewayCertificate::LoadOrCreate(const std::string& folder, const std::string& applicationUri,
                                       std::string& error)
{
    UA_ByteString_clear(&m_certificate);
    UA_ByteString_clear(&m_key);
    m_certificatePath = folder + "/" + kCertificateName;
    const std::string keyPath = folder + "/" + kKeyName;

    // Gateways started at once on one account make one pair between them.
    int lock = -1;
    if (MakeFolders(folder)) {
        lock = ::open((folder + "/.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (lock >= 0)
            ::flock(lock, LOCK_EX);
    }
    std::string why;
    bool ok = ReadFile(m_certificatePath, m_certificate, why) && ReadFile(keyPath, m_key, why);
    if (ok) {
        m_note = "Сертификат сервера: " + m_certificatePath;
    } else {
        UA_ByteString_clear(&m_certificate);
        UA_ByteString_clear(&m_key);
        ok = Create(applicationUri, error);
        if (ok && Store(folder, why)) {
            m_note = "Создан самоподписанный сертификат сервера: " + m_certificatePath;
        } else if (ok) {
            m_note =
                "Самоподписанный сертификат сервера не сохранён (" + why + "), он действует до остановки";
            m_certificatePath.clear();
        }
    }
    if (lock >= 0)
        ::close(lock);
    return ok;
}

bool CGatewayCertificate::Create(const std::string& applicationUri, std::string& error)
{
    const std::string host = HostName();
    const std::string cn = "CN=TARN OPC UA MODBUS@" + host;
    const std::string uri = "URI:" + applicationUri;
    const std::string dns = "DNS:" + host;
    UA_String subject[] = {UA_STRING_STATIC("O=TARN"), UA_STRING(const_cast<char*>(cn.c_str()))};
    UA_String altNames[] = {UA_STRING(const_cast<char*>(uri.c_str())),
                            UA_STRING(const_cast<char*>(dns.c_str())), UA_STRING_STATIC("DNS:localhost")};
    UA_KeyValueMap* params = UA_KeyValueMap_new();
    UA_UInt16 bits = 2048;
    UA_UInt16 days = 3650;
    UA_KeyValueMap_setScalar(params, UA_QUALIFIEDNAME(0, const_cast<char*>("key-size-bits")), &bits,
                             &UA_TYPES[UA_TYPES_UINT16]);
    UA_KeyValueMap_setScalar(params, UA_QUALIFIEDNAME(0, const_cast<char*>("expires-in-days")), &days,
                             &UA_TYPES[UA_TYPES_UINT16]);
    UA_Logger* logger = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
    const UA_StatusCode rc = UA_CreateCertificate(logger, subject, 2, altNames, 3, UA_CERTIFICATEFORMAT_DER,
                                                  params, &m_key, &m_certificate);
    logger->clear(logger);
    UA_KeyValueMap_delete(params);
    if (rc != UA_STATUSCODE_GOOD || !m_certificate.length || !m_key.length) {
        error = std::string("не удалось создать сертификат сервера: ") + UA_StatusCode_name(rc);
        return false;
    }
    return true;
}

bool CGatewayCertificate::Store(const std::string& folder, std::string& error) const
{
    if (!MakeFolders(folder)) {
        error = "нет каталога " + folder;
        return false;
    }
    // The key first: a certificate on disk always has its key beside it.
    if (!WriteAll(folder + "/" + kKeyName, m_key, 0600) ||
        !WriteAll(folder + "/" + kCertificateName, m_certificate, 0644)) {
        error = "не удалось записать в " + folder;
        return false;
    }
    return true;
}

bool CGatewayCertificate::ReadFile(const std::string& path, UA_ByteString& out, std::string& why)
{
    // Never blocks: a pipe or a device named as a certificate is refused, not waited on.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        why = std::string("не открывается (") + std::strerror(errno) + ")";
        return false;
    }
    struct stat st;
    bool ok = false;
    if (::fstat(fd, &st) != 0)
        why = std::string("не удаётся проверить (") + std::strerror(errno) + ")";
    else if (S_ISDIR(st.st_mode))
        why = "это каталог";
    else if (!S_ISREG(st.st_mode))
        why = "это не обычный файл";
    else if (st.st_size == 0)
        why = "пуст";
    else if (st.st_size > kMaxFileBytes)
        why = "больше 64 КиБ";
    else if (UA_ByteString_allocBuffer(&out, std::size_t(st.st_size)) != UA_STATUSCODE_GOOD)
        why = "не помещается в памяти";
    else {
        std::size_t done = 0;
        while (done < out.length) {
            const ssize_t n = ::read(fd, out.data + done, out.length - done);
            if (n <= 0)
                break;
            done += std::size_t(n);
        }
        ok = done == out.length;
        if (!ok) {
            why = "не читается до конца";
            UA_ByteString_clear(&out);
        }
    }
    ::close(fd);
    return ok;
}

bool CGatewayCertificate::CheckPair(const UA_ByteString& certificate, const UA_ByteString& key,
                                    std::string& why)
{
    // mbedTLS takes PEM text with its terminating NUL only.
    const auto bytes = [](const UA_ByteString& b) {
        std::string s(reinterpret_cast<const char*>(b.data), b.length);
        if (s.compare(0, 10, "-----BEGIN") == 0)
            s.push_back('\0');
        return s;
    };
    const std::string cert = bytes(certificate);
    const std::string pem = bytes(key);
    mbedtls_x509_crt crt;
    mbedtls_pk_context pk;
    mbedtls_entropy_context entropy;
    mbedtls_ctr_drbg_context drbg;
    mbedtls_x509_crt_init(&crt);
    mbedtls_pk_init(&pk);
    mbedtls_entropy_init(&entropy);
    mbedtls_ctr_drbg_init(&drbg);
    const auto u = [](const std::string& s) { return reinterpret_cast<const unsigned char*>(s.data()); };
    bool ok = false;
    if (mbedtls_ctr_drbg_seed(&drbg, mbedtls_entropy_func, &entropy, nullptr, 0) != 0)
        why = "нет случайных чисел для проверки ключа";
    else if (mbedtls_x509_crt_parse(&crt, u(cert), cert.size()) != 0)
        why = "сертификат не в формате X.509";
    else if (mbedtls_pk_parse_key(&pk, u(pem), pem.size(), nullptr, 0, mbedtls_ctr_drbg_random, &drbg) != 0)
        why = "закрытый ключ не читается как ключ без пароля";
    else if (mbedtls_pk_check_pair(&crt.pk, &pk, mbedtls_ctr_drbg_random, &drbg) != 0)
        why = "закрытый ключ не подходит к сертификату";
    else
        ok = true;
    mbedtls_ctr_drbg_free(&drbg);
    mbedtls_entropy_free(&entropy);
    mbedtls_pk_free(&pk);
    mbedtls_x509_crt_free(&crt);
    return ok;
}
