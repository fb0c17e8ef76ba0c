#include "certificate.h"

#include "file_descriptor.h"

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace service {
namespace {

template <auto Release>
struct ReleaseWith {
    template <typename Object>
    void operator()(Object* object) const {
        Release(object);
    }
};
using Certificate = std::unique_ptr<X509, ReleaseWith<X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, ReleaseWith<EVP_PKEY_free>>;
using Memory = std::unique_ptr<BIO, ReleaseWith<BIO_free_all>>;
using Extension = std::unique_ptr<X509_EXTENSION, ReleaseWith<X509_EXTENSION_free>>;

constexpr long kDay = 24L * 60 * 60;
constexpr long kValidity = 5L * 365 * kDay; // seconds
constexpr long kRenewBefore = 30 * kDay;
constexpr const char* kNames = "IP:127.0.0.1,DNS:localhost";

void Require(bool condition) {
    if (!condition) {
        throw std::runtime_error("the certificate cannot be made");
    }
}

Key MakeKey() {
    Key key(EVP_EC_gen("P-256"));
    Require(key != nullptr);
    return key;
}

struct ExtensionText {
    int id;
    const char* value;
};

struct Subject {
    const char* name;
    EVP_PKEY* key;
    std::initializer_list<ExtensionText> extensions;
};

void SetSerial(X509* certificate) {
    std::uint64_t serial = 0;
    Require(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1);
    Require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial | 1U) == 1);
}

// A null issuer makes a certificate that signs itself.
Certificate Sign(const Subject& subject, X509* issuer, EVP_PKEY* issuerKey) {
    Certificate certificate(X509_new());
    Require(certificate != nullptr);
    X509* const made = certificate.get();
    Require(X509_set_version(made, X509_VERSION_3) == 1);
    SetSerial(made);
    // An hour back, for clocks that differ within the computer (a virtual machine's, say).
    Require(X509_gmtime_adj(X509_getm_notBefore(made), -kDay / 24) != nullptr);
    Require(X509_gmtime_adj(X509_getm_notAfter(made), kValidity) != nullptr);
    X509_NAME* const name = X509_get_subject_name(made);
    Require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(subject.name), -1, -1,
                                       0) == 1);
    X509* const signer = issuer == nullptr ? made : issuer;
    Require(X509_set_issuer_name(made, X509_get_subject_name(signer)) == 1);
    Require(X509_set_pubkey(made, subject.key) == 1);

    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, signer, made, nullptr, nullptr, 0);
    for (const ExtensionText& text : subject.extensions) {
        const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, text.id, text.value));
        Require(extension && X509_add_ext(made, extension.get(), -1) == 1);
    }
    Require(X509_sign(made, issuerKey, EVP_sha256()) > 0);
    return certificate;
}

std::string TextOf(BIO* memory) {
    char* text = nullptr;
    const long size = BIO_get_mem_data(memory, &text);
    return {text, static_cast<std::size_t>(size)};
}

std::string Pem(X509* certificate) {
    const Memory memory(BIO_new(BIO_s_mem()));
    Require(memory && PEM_write_bio_X509(memory.get(), certificate) == 1);
    return TextOf(memory.get());
}

std::string Pem(EVP_PKEY* key) {
    const Memory memory(BIO_new(BIO_s_secmem()));
    Require(memory && PEM_write_bio_PrivateKey(memory.get(), key, nullptr, nullptr, 0, nullptr,
                                               nullptr) == 1);
    return TextOf(memory.get());
}

// The file is whole or not there, and never readable by more than `mode` says.
void WriteFile(const std::filesystem::path& path, std::string_view text, mode_t mode) {
    const std::filesystem::path part = path.string() + ".part";
    std::filesystem::remove(part);
    const FileDescriptor file(::open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!file || ::write(file.Get(), text.data(), text.size()) != std::ssize(text) ||
        ::fsync(file.Get()) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot write " + path.string());
    }
    std::filesystem::rename(part, path);
}

Memory Open(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    Memory memory(BIO_new(BIO_s_mem()));
    Require(memory && BIO_write(memory.get(), text.data(), static_cast<int>(text.size())) ==
                          static_cast<int>(text.size()));
    return memory;
}

Certificate ReadCertificate(const std::filesystem::path& path) {
    return Certificate(PEM_read_bio_X509(Open(path).get(), nullptr, nullptr, nullptr));
}

bool IsCurrent(const X509* certificate) {
    std::time_t soon = std::time(nullptr) + kRenewBefore;
    return X509_cmp_current_time(X509_get0_notBefore(certificate)) < 0 &&
           X509_cmp_time(X509_get0_notAfter(certificate), &soon) > 0;
}

bool IsUsable(const CertificateFiles& files) {
    const Certificate authority = ReadCertificate(files.authority);
    const Certificate server = ReadCertificate(files.server);
    const Key key(PEM_read_bio_PrivateKey(Open(files.key).get(), nullptr, nullptr, nullptr));
    return authority && server && key && IsCurrent(authority.get()) && IsCurrent(server.get()) &&
           X509_verify(server.get(), X509_get0_pubkey(authority.get())) == 1 &&
           X509_check_private_key(server.get(), key.get()) == 1 &&
           X509_check_host(server.get(), "localhost", 0, 0, nullptr) == 1 &&
           X509_check_ip_asc(server.get(), "127.0.0.1", 0) == 1;
}

void Make(const CertificateFiles& files) {
    const Key authorityKey = MakeKey();
    const Certificate authority = Sign({"Kelvarin local authority",
                                        authorityKey.get(),
                                        {{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
                                         {NID_key_usage, "critical,keyCertSign,cRLSign"},
                                         {NID_subject_key_identifier, "hash"}}},
                                       nullptr, authorityKey.get());
    const Key serverKey = MakeKey();
    const Certificate server = Sign({"localhost",
                                     serverKey.get(),
                                     {{NID_basic_constraints, "critical,CA:FALSE"},
                                      {NID_key_usage, "critical,digitalSignature"},
                                      {NID_ext_key_usage, "serverAuth"},
                                      {NID_subject_alt_name, kNames},
                                      {NID_subject_key_identifier, "hash"},
                                      {NID_authority_key_identifier, "keyid"}}},
                                    authority.get(), authorityKey.get());
    WriteFile(files.key, Pem(serverKey.get()), 0600);
    WriteFile(files.authority, Pem(authority.get()), 0644);
    WriteFile(files.server, Pem(server.get()), 0644);
}

} // namespace

CertificateFiles CertificateFilesIn(const std::filesystem::path& directory) {
    return {directory / "ca.pem", directory / "server.pem", directory / "server.key"};
}

CertificateState EnsureCertificate(const std::filesystem::path& directory) {
    std::filesystem::create_directories(directory);
    const CertificateFiles files = CertificateFilesIn(directory);
    if (!IsUsable(files)) {
        Make(files);
        return CertificateState::Made;
    }
    // A key copied here by hand may have come with a wider mode.
    std::filesystem::permissions(files.key, std::filesystem::perms::owner_read |
                                                std::filesystem::perms::owner_write);
    return CertificateState::Kept;
}

std::optional<std::chrono::seconds> TimeLeft(const std::filesystem::path& certificate) {
    const Certificate read = ReadCertificate(certificate);
    int days = 0;
    int seconds = 0;
    // From now, where no other time is given.
    if (!read || ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(read.get())) != 1) {
        return std::nullopt;
    }
    return std::chrono::seconds(days * std::int64_t{kDay} + seconds);
}

} // namespace service
