#include "tools/certificatewriter.h"

#include <mbedtls/ctr_drbg.h>
#include <mbedtls/entropy.h>
#include <mbedtls/error.h>
#include <mbedtls/oid.h>
#include <mbedtls/pk.h>
#include <mbedtls/rsa.h>
#include <mbedtls/x509_crt.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <vector>

namespace {

// Owns the mbedTLS contexts for one run.
struct Contexts
{
    Contexts()
    {
        mbedtls_entropy_init(&entropy);
        mbedtls_ctr_drbg_init(&drbg);
        mbedtls_pk_init(&key);
        mbedtls_x509write_crt_init(&crt);
    }
    ~Contexts()
    {
        mbedtls_x509write_crt_free(&crt);
        mbedtls_pk_free(&key);
        mbedtls_ctr_drbg_free(&drbg);
        mbedtls_entropy_free(&entropy);
    }
    Contexts(const Contexts&) = delete;
    Contexts& operator=(const Contexts&) = delete;

    mbedtls_entropy_context entropy;
    mbedtls_ctr_drbg_context drbg;
    mbedtls_pk_context key;
    mbedtls_x509write_cert crt;
};

std::string MbedError(const char* what, int code)
{
    char text[200];
    mbedtls_strerror(code, text, sizeof text);
    return std::string(what) + ": " + text;
}

// RFC 4514 escaping for one attribute value of the subject string.
std::string Escaped(const std::string& value)
{
    std::string out;
    for (char c : value) {
        if (std::strchr(",=+<>#;\\\"", c))
            out += '\\';
        out += c;
    }
    return out;
}

std::string SubjectName(const CertificateOptions& o)
{
    std::string subject;
    auto add = [&subject](const char* type, const std::string& value) {
        if (value.empty())
            return;
        if (!subject.empty())
            subject += ',';
        subject += std::string(type) + '=' + Escaped(value);
    };
    add("CN", o.commonName);
    add("O", o.organization);
    add("OU", o.organizationUnit);
    add("ST", o.state);
    add("L", o.locality);
    add("C", o.country);
    return subject;
}

mbedtls_md_type_t HashType(const std::string& name)
{
    if (name == "Sha1")
        return MBEDTLS_MD_SHA1;
    if (name == "Sha224")
        return MBEDTLS_MD_SHA224;
    if (name == "Sha384")
        return MBEDTLS_MD_SHA384;
    if (name == "Sha512")
        return MBEDTLS_MD_SHA512;
    return MBEDTLS_MD_SHA256;
}

std::string TimeText(std::time_t t)
{
    std::tm tm{};
    gmtime_r(&t, &tm);
    char text[16];
    std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &tm);
    return text;
}

// Opens the folder for writing up front so that a bad folder is told before
// minutes of key generation, not after.
bool CheckFolder(const std::string& folder, std::string& error)
{
    std::error_code ec;
    if (!std::filesystem::is_directory(folder, ec)) {
        error = "'" + folder + "' is not a folder";
        return false;
    }
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        error = "folder '" + folder + "' can't be written: " + std::strerror(errno);
        return false;
    }
    return true;
}

// Writes through a temporary file and renames it, so that an interrupted run
// leaves the previous file as it was.
bool WriteFile(const std::string& path, const unsigned char* data, size_t size, mode_t mode,
               std::string& error)
{
    const std::string temp = path + ".tmp";
    std::FILE* f = std::fopen(temp.c_str(), "wb");
    if (!f) {
        error = "can't write '" + temp + "': " + std::strerror(errno);
        return false;
    }
    const bool written = std::fwrite(data, 1, size, f) == size;
    const bool closed = std::fclose(f) == 0;
    if (!written || !closed || chmod(temp.c_str(), mode) != 0 ||
        std::rename(temp.c_str(), path.c_str()) != 0) {
        error = "can't write '" + path + "': " + std::strerror(errno);
        std::remove(temp.c_str());
        return false;
    }
    return true;
}

} // namespace

CertificateWriter::Result CertificateWriter::Write(const CertificateOptions& o, std::string& error)
{
    if (!CheckFolder(o.derFolder, error) || !CheckFolder(o.pemFolder, error))
        return CannotWrite;
    certificatePath = (std::filesystem::path(o.derFolder) / kCertificateName).string();
    keyPath = (std::filesystem::path(o.pemFolder) / kKeyName).string();

    Contexts c;
    static const char kPersonalization[] = "velmora generate_certificate";
    int rc = mbedtls_ctr_drbg_seed(&c.drbg, mbedtls_entropy_func, &c.entropy,
                                   reinterpret_cast<const unsigned char*>(kPersonalization),
                                   sizeof kPersonalization - 1);
    if (rc != 0) {
        error = MbedError("random generator", rc);
        return GenerationFailed;
    }
    rc = mbedtls_pk_setup(&c.key, mbedtls_pk_info_from_type(MBEDTLS_PK_RSA));
    if (rc == 0)
        rc = mbedtls_rsa_gen_key(mbedtls_pk_rsa(c.key), mbedtls_ctr_drbg_random, &c.drbg,
                                 static_cast<unsigned>(o.keyBits), 65537);
    if (rc != 0) {
        error = MbedError("RSA key generation", rc);
        return GenerationFailed;
    }

    mbedtls_x509write_cert* crt = &c.crt;
    mbedtls_x509write_crt_set_version(crt, MBEDTLS_X509_CRT_VERSION_3);
    mbedtls_x509write_crt_set_md_alg(crt, HashType(o.hash));
    mbedtls_x509write_crt_set_subject_key(crt, &c.key);
    mbedtls_x509write_crt_set_issuer_key(crt, &c.key);

    const std::string subject = SubjectName(o);
    rc = mbedtls_x509write_crt_set_subject_name(crt, subject.c_str());
    if (rc == 0)
        rc = mbedtls_x509write_crt_set_issuer_name(crt, subject.c_str());
    if (rc != 0) {
        error = MbedError(("subject '" + subject + "'").c_str(), rc);
        return GenerationFailed;
    }

    // A positive serial of 16 random bytes, as RFC 5280 recommends.
    unsigned char serial[16];
    rc = mbedtls_ctr_drbg_random(&c.drbg, serial, sizeof serial);
    serial[0] = static_cast<unsigned char>((serial[0] & 0x7F) | 0x40);
    if (rc == 0)
        rc = mbedtls_x509write_crt_set_serial_raw(crt, serial, sizeof serial);

    const std::time_t now = std::time(nullptr);
    const std::time_t until = now + std::time_t(o.validityDays) * 86400;
    if (rc == 0)
        rc = mbedtls_x509write_crt_set_validity(crt, TimeText(now).c_str(), TimeText(until).c_str());

    // What OPC UA wants of an application instance certificate: the
    // application URI among the alternative names, and the usages that the
    // Basic256Sha256 policy checks on both ends of a secure channel.
    if (rc == 0)
        rc = mbedtls_x509write_crt_set_basic_constraints(crt, 0, -1);
    if (rc == 0)
        rc = mbedtls_x509write_crt_set_subject_key_identifier(crt);
    if (rc == 0)
        rc = mbedtls_x509write_crt_set_authority_key_identifier(crt);
    if (rc == 0)
        rc = mbedtls_x509write_crt_set_key_usage(
            crt, MBEDTLS_X509_KU_DIGITAL_SIGNATURE | MBEDTLS_X509_KU_NON_REPUDIATION |
                     MBEDTLS_X509_KU_KEY_ENCIPHERMENT | MBEDTLS_X509_KU_DATA_ENCIPHERMENT |
                     MBEDTLS_X509_KU_KEY_CERT_SIGN);

    mbedtls_asn1_sequence usages[2] = {};
    usages[0].buf.tag = MBEDTLS_ASN1_OID;
    usages[0].buf.p = reinterpret_cast<unsigned char*>(const_cast<char*>(MBEDTLS_OID_SERVER_AUTH));
    usages[0].buf.len = MBEDTLS_OID_SIZE(MBEDTLS_OID_SERVER_AUTH);
    usages[0].next = &usages[1];
    usages[1].buf.tag = MBEDTLS_ASN1_OID;
    usages[1].buf.p = reinterpret_cast<unsigned char*>(const_cast<char*>(MBEDTLS_OID_CLIENT_AUTH));
    usages[1].buf.len = MBEDTLS_OID_SIZE(MBEDTLS_OID_CLIENT_AUTH);
    if (rc == 0)
        rc = mbedtls_x509write_crt_set_ext_key_usage(crt, usages);

    std::vector<mbedtls_x509_san_list> names(1 + o.dnsNames.size() + o.ipAddresses.size());
    auto setName = [](mbedtls_x509_san_list& n, int type, const std::string& value) {
        n.node.type = type;
        n.node.san.unstructured_name.p = reinterpret_cast<unsigned char*>(const_cast<char*>(value.data()));
        n.node.san.unstructured_name.len = value.size();
    };
    const std::string uri = kApplicationUri;
    size_t i = 0;
    setName(names[i++], MBEDTLS_X509_SAN_UNIFORM_RESOURCE_IDENTIFIER, uri);
    for (const std::string& dns : o.dnsNames)
        setName(names[i++], MBEDTLS_X509_SAN_DNS_NAME, dns);
    for (const std::string& ip : o.ipAddresses)
        setName(names[i++], MBEDTLS_X509_SAN_IP_ADDRESS, ip);
    // mbedTLS writes the list back to front; chain it backwards so that the
    // URI comes first in the certificate.
    for (size_t k = 1; k < names.size(); ++k)
        names[k].next = &names[k - 1];
    if (rc == 0)
        rc = mbedtls_x509write_crt_set_subject_alternative_name(crt, &names.back());
    if (rc != 0) {
        error = MbedError("certificate fields", rc);
        return GenerationFailed;
    }

    std::vector<unsigned char> der(16384);
    const int derLength =
        mbedtls_x509write_crt_der(crt, der.data(), der.size(), mbedtls_ctr_drbg_random, &c.drbg);
    if (derLength < 0) {
        error = MbedError("signing the certificate", derLength);
        return GenerationFailed;
    }
    std::vector<unsigned char> pem(16384);
    rc = mbedtls_pk_write_key_pem(&c.key, pem.data(), pem.size());
    if (rc != 0) {
        error = MbedError("writing the key", rc);
        return GenerationFailed;
    }

    // mbedTLS writes the DER at the end of the buffer.
    const unsigned char* derStart = der.data() + der.size() - static_cast<size_t>(derLength);
    if (!WriteFile(certificatePath, derStart, static_cast<size_t>(derLength), 0644, error) ||
        !WriteFile(keyPath, pem.data(), std::strlen(reinterpret_cast<char*>(pem.data())), 0600, error))
        return CannotWrite;
    mbedtls_platform_zeroize(pem.data(), pem.size());
    return Done;
}
