#include "fleet/broker/internal/Certificate.h"

#include <memory>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace {

struct Free {
    void operator()(BIO* file) const noexcept { BIO_free_all(file); }
    void operator()(X509* certificate) const noexcept { X509_free(certificate); }
};

}  // namespace

bool HasRunOut(const std::string& path) {
    const std::unique_ptr<BIO, Free> file(BIO_new_file(path.c_str(), "r"));
    const std::unique_ptr<X509, Free> certificate(
        file != nullptr ? PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr) : nullptr);
    ERR_clear_error();
    return certificate != nullptr && X509_cmp_current_time(X509_get0_notAfter(certificate.get())) < 0;
}
