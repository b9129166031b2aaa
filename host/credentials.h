// The agent's certificates.

#pragma once

#include <grpcpp/security/server_credentials.h>

#include <memory>
#include <mutex>
#include <string>

#include "host/options.h"

namespace host {

// Files of certificates, which can be replaced while a server uses them. One thread; gRPC reads on its own.
class certificates {
 public:
    // Throws setup_error when a file is unusable.
    explicit certificates(tls_options_s options);

    // Reads the files again, for all connections from now on. Throws setup_error when one is unusable; then the old ones
    // stay in use.
    void reload();

    // For a server that ends before this object.
    std::shared_ptr<grpc::ServerCredentials> credentials();

 private:
    class reloading_credentials;
    struct pem_files_s {
        std::string cert, key, client_ca;
        int version = 0;
    };

    const tls_options_s options_;
    std::mutex mutex_;
    pem_files_s pem_;
};

}  // namespace host
