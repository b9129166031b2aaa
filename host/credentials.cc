#include "host/credentials.h"

#include <openssl/ssl.h>

#include <fstream>
#include <sstream>

#include "host/setup_error.h"

namespace host {

namespace {

std::string read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    if (!file || !text) {
        throw setup_error(path + ": can't be read");
    }
    return text.str();
}

// gRPC would start with files that it can't use, and fail every client.
void check_files(const tls_options_s &tls) {
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_server_method()),
                                                                    SSL_CTX_free);
    if (SSL_CTX_use_certificate_chain_file(context.get(), tls.cert_file.c_str()) != 1) {
        throw setup_error(tls.cert_file + ": holds no PEM certificate");
    }
    // Nobody is there to be asked for the passphrase of an encrypted key.
    SSL_CTX_set_default_passwd_cb(context.get(), [](char *, int, int, void *) { return 0; });
    if (SSL_CTX_use_PrivateKey_file(context.get(), tls.key_file.c_str(), SSL_FILETYPE_PEM) != 1) {
        throw setup_error(tls.key_file + ": holds no unencrypted PEM private key of " + tls.cert_file);
    }
    const std::string &ca = tls.client_ca_file;
    if (!ca.empty() && SSL_CTX_load_verify_file(context.get(), ca.c_str()) != 1) {
        throw setup_error(ca + ": holds no PEM certificate");
    }
}

}  // namespace

std::shared_ptr<grpc::ServerCredentials> server_credentials(const std::optional<tls_options_s> &tls) {
    if (!tls) {
        return grpc::InsecureServerCredentials();
    }
    check_files(*tls);
    grpc::SslServerCredentialsOptions options;
    options.pem_key_cert_pairs.push_back({read_file(tls->key_file), read_file(tls->cert_file)});
    if (!tls->client_ca_file.empty()) {
        options.pem_root_certs = read_file(tls->client_ca_file);
        options.client_certificate_request = GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY;
    }
    return grpc::SslServerCredentials(options);
}

}  // namespace host
