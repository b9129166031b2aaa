// The service about the agent's own process.

#pragma once

#include <chrono>
#include <mutex>
#include <string>

#include "host/connections.h"
#include "nyx/agent.grpc.pb.h"
#include "svc/call_server.h"
#include "svc/served.h"

namespace host {

// One start of the agent.
struct instance_s {
    std::string id;  // 32 hexadecimal digits
    std::chrono::system_clock::time_point start;
    std::chrono::steady_clock::time_point steady_start;
};

// The start that is the current one. Any thread.
class agent_instance {
 public:
    agent_instance() { renew(); }

    // Starts anew, with a random id and the time of now. Throws setup_error.
    void renew();

    instance_s get() const;

 private:
    mutable std::mutex mutex_;
    instance_s instance_;
};

// Any thread.
class AgentSvcImpl final : public svc::served<nyx::AgentSvc> {
 public:
    // All of these outlive the service. `sysconfig` is the folder of hostif_mac.json.
    AgentSvcImpl(const agent_instance &instance, const svc::call_server &calls,
                 const connection_counts_s &connections, const std::string &sysconfig);

    grpc::Status AgentGet(grpc::ServerContext *context, const nyx::AgentGetRequest *req,
                          nyx::AgentGetResponse *rsp) override;

 private:
    void fill(nyx::AgentGetResponse *rsp) const;
    void fill_calls(nyx::AgentGetResponse *rsp) const;

    const agent_instance &instance_;
    const svc::call_server &calls_;
    const connection_counts_s &connections_;
    const std::string sysconfig_;
};

}  // namespace host
