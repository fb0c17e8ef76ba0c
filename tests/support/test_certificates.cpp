#include "test_certificates.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdlib>
#include <stdexcept>

namespace {

template <typename Object, void (*Release)(Object*)>
struct Releaser {
    void operator()(Object* object) const { Release(object); }
};
template <typename Object, void (*Release)(Object*)>
using Owned = std::unique_ptr<Object, Releaser<Object, Release>>;

using PrivateKey = Owned<EVP_PKEY, EVP_PKEY_free>;
using Certificate = Owned<X509, X509_free>;
using Extension = Owned<X509_EXTENSION, X509_EXTENSION_free>;

using OutputFile = Owned<BIO, BIO_free_all>;

void Check(bool done, const char* what) {
    if (!done) {
        throw std::runtime_error(std::string("test certificates: ") + what);
    }
}

// What issues and is issued: a certificate with its key.
struct Identity {
    PrivateKey key;
    Certificate certificate;
};

struct Subject {
    const char* commonName;
    const char* alternativeNames; // as OpenSSL's configuration writes them; null for an authority
    long validFromDays;           // counted from today
    long validToDays;
};

void AddExtension(X509* certificate, X509* issuer, int kind, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value));
    Check(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "extension");
}

void SetDay(ASN1_TIME* time, long daysFromNow) {
    constexpr long kSecondsPerDay = 24L * 60 * 60;
    Check(X509_gmtime_adj(time, daysFromNow * kSecondsPerDay) != nullptr, "validity");
}

// Without an issuer the certificate signs itself, as an authority does.
Identity Issue(const Subject& subject, const Identity* issuer) {
    static long serial = 0;
    Identity issued{PrivateKey(EVP_EC_gen("P-256")), Certificate(X509_new())};
    X509* certificate = issued.certificate.get();
    X509* signer = issuer ? issuer->certificate.get() : certificate;
    Check(issued.key && certificate, "key");

    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), ++serial);
    SetDay(X509_getm_notBefore(certificate), subject.validFromDays);
    SetDay(X509_getm_notAfter(certificate), subject.validToDays);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(subject.commonName), -1, -1,
                               0);
    X509_set_issuer_name(certificate, X509_get_subject_name(signer));
    X509_set_pubkey(certificate, issued.key.get());
    AddExtension(certificate, signer, NID_subject_key_identifier, "hash");
    AddExtension(certificate, signer, NID_basic_constraints,
                 issuer ? "critical,CA:FALSE" : "critical,CA:TRUE");
    if (subject.alternativeNames) {
        AddExtension(certificate, signer, NID_subject_alt_name, subject.alternativeNames);
    }
    EVP_PKEY* signingKey = issuer ? issuer->key.get() : issued.key.get();
    Check(X509_sign(certificate, signingKey, EVP_sha256()) > 0, "signature");
    return issued;
}

OutputFile OpenForWriting(const std::string& path) {
    OutputFile file(BIO_new_file(path.c_str(), "w"));
    Check(file != nullptr, path.c_str());
    return file;
}

void Write(const Identity& identity, const ServerCertificate& files) {
    const OutputFile certificate = OpenForWriting(files.certificateFile);
    const OutputFile key = OpenForWriting(files.keyFile);
    Check(PEM_write_bio_X509(certificate.get(), identity.certificate.get()) == 1 &&
              PEM_write_bio_PrivateKey(key.get(), identity.key.get(), nullptr, nullptr, 0, nullptr,
                                       nullptr) == 1,
          "writing");
}

} // namespace

TestCertificates::TestCertificates() {
    std::string pattern = (std::filesystem::temp_directory_path() / "certificates-XXXXXX").string();
    Check(mkdtemp(pattern.data()) != nullptr, "folder");
    folder_ = pattern;

    const char* here = "IP:127.0.0.1,DNS:localhost";
    const Identity trusted = Issue({"Test authority", nullptr, -30, 30}, nullptr);
    const Identity foreign = Issue({"Foreign authority", nullptr, -30, 30}, nullptr);
    Write(trusted, {AuthorityFile(), File("authority.key")});
    Write(Issue({"Trusted server", here, -1, 30}, &trusted), Trusted());
    Write(Issue({"Expired server", here, -20, -10}, &trusted), Expired());
    Write(Issue({"Other server", "DNS:service.test", -1, 30}, &trusted), WrongHost());
    Write(Issue({"Foreign server", here, -1, 30}, &foreign), Foreign());
}

TestCertificates::~TestCertificates() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}
