// Which gRPC clients may connect.

#pragma once

#include <grpcpp/security/server_credentials.h>

#include <memory>
#include <optional>

#include "host/options.h"

namespace host {

// Plaintext, or TLS from these files. Throws setup_error when a file is unusable.
std::shared_ptr<grpc::ServerCredentials> server_credentials(const std::optional<tls_options_s> &tls);

}  // namespace host
