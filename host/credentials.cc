#include "host/credentials.h"

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

struct pem_files_s {
    std::string cert, key, client_ca;
};

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

std::shared_ptr<grpc::ServerCredentials> server_credentials(const std::optional<tls_options_s> &tls) {
    if (!tls) {
        return grpc::InsecureServerCredentials();
    }
    const pem_files_s pem = {.cert = read_file(tls->cert_file),
                             .key = read_file(tls->key_file),
                             .client_ca = tls->client_ca_file.empty() ? "" : read_file(tls->client_ca_file)};
    check_files(*tls);
    grpc::SslServerCredentialsOptions options;
    options.pem_key_cert_pairs.push_back({pem.key, pem.cert});
    if (!pem.client_ca.empty()) {
        options.pem_root_certs = pem.client_ca;
        options.client_certificate_request = GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY;
    }
    return grpc::SslServerCredentials(options);
}

}  // namespace host
