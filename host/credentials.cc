#include "host/credentials.h"

#include <grpc/grpc_security.h>
#include <openssl/ssl.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "host/setup_error.h"

namespace host {

namespace {

// Only regular files: opening a FIFO would wait for its writer, and a device may never end.
std::string read_file(const std::string &path) {
    constexpr uintmax_t k_max_size = 1 << 20;
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        throw setup_error(path + ": " + (error ? error.message() : "not a regular file"));
    }
    if (std::filesystem::file_size(path, error) > k_max_size) {
        throw setup_error(path + ": larger than 1 MiB");
    }
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    if (!file || !text) {
        throw setup_error(path + ": can't be read");
    }
    return text.str();
}

// gRPC would start with unusable files, and then refuse every client.
void check_files(const tls_options_s &tls) {
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_server_method()),
                                                                    SSL_CTX_free);
    if (SSL_CTX_use_certificate_chain_file(context.get(), tls.cert_file.c_str()) != 1) {
        throw setup_error(tls.cert_file + ": not a PEM certificate");
    }
    // Otherwise OpenSSL would ask on the terminal for the passphrase of an encrypted key.
    SSL_CTX_set_default_passwd_cb(context.get(), [](char *, int, int, void *) { return 0; });
    if (SSL_CTX_use_PrivateKey_file(context.get(), tls.key_file.c_str(), SSL_FILETYPE_PEM) != 1) {
        throw setup_error(tls.key_file + ": not the unencrypted PEM private key of " + tls.cert_file);
    }
    const std::string &ca = tls.client_ca_file;
    if (!ca.empty() && SSL_CTX_load_verify_file(context.get(), ca.c_str()) != 1) {
        throw setup_error(ca + ": not a PEM certificate");
    }
}

}  // namespace

// gRPC asks for each new connection whether there are other files.
class certificates::reloading_credentials final : public grpc::ServerCredentials {
 public:
    explicit reloading_credentials(certificates *of) : of_(of) {
        const auto clients = of->options_.client_ca_file.empty()
                                 ? GRPC_SSL_DONT_REQUEST_CLIENT_CERTIFICATE
                                 : GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY;
        credentials_ = grpc_ssl_server_credentials_create_with_options(
            grpc_ssl_server_credentials_create_options_using_config_fetcher(clients, fetch, this));
    }
    ~reloading_credentials() override { grpc_server_credentials_release(credentials_); }

    void SetAuthMetadataProcessor(const std::shared_ptr<grpc::AuthMetadataProcessor> &) override {}

 private:
    int AddPortToServer(const std::string &address, grpc_server *server) override {
        return grpc_server_add_http2_port(server, address.c_str(), credentials_);
    }

    static grpc_ssl_certificate_config_reload_status fetch(void *self,
                                                           grpc_ssl_server_certificate_config **config) {
        auto *mine = static_cast<reloading_credentials *>(self);
        const std::lock_guard lock(mine->of_->mutex_);
        const pem_files_s &pem = mine->of_->pem_;
        if (mine->version_ == pem.version) {
            return GRPC_SSL_CERTIFICATE_CONFIG_RELOAD_UNCHANGED;
        }
        const grpc_ssl_pem_key_cert_pair pair = {.private_key = pem.key.c_str(),
                                                 .cert_chain = pem.cert.c_str()};
        // gRPC insists on a CA of clients, even if it asks none for a certificate.
        const std::string &client_ca = pem.client_ca.empty() ? pem.cert : pem.client_ca;
        *config = grpc_ssl_server_certificate_config_create(client_ca.c_str(), &pair, 1);
        mine->version_ = pem.version;
        return GRPC_SSL_CERTIFICATE_CONFIG_RELOAD_NEW;
    }

    certificates *const of_;
    grpc_server_credentials *credentials_;
    int version_ = 0;
};

certificates::certificates(tls_options_s options) : options_(std::move(options)) { reload(); }

void certificates::reload() {
    pem_files_s pem = {
        .cert = read_file(options_.cert_file),
        .key = read_file(options_.key_file),
        .client_ca = options_.client_ca_file.empty() ? "" : read_file(options_.client_ca_file)};
    check_files(options_);
    const std::lock_guard lock(mutex_);
    pem.version = pem_.version + 1;
    pem_ = std::move(pem);
}

std::shared_ptr<grpc::ServerCredentials> certificates::credentials() {
    return std::make_shared<reloading_credentials>(this);
}

}  // namespace host
