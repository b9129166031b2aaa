// What is measured, by subject.

#pragma once

#include <string>

#include "bench/ratio_table.h"
#include "bench/service_thread.h"

namespace bench {

void add_conversion(ratio_table *table);
void add_grpc(ratio_table *table);
void add_mac_file(ratio_table *table);
void add_start(ratio_table *table);
void add_table_stream(ratio_table *table);

// The service thread must outlive the table.
void add_socket(ratio_table *table, service_thread *service);
void add_page_faults(ratio_table *table, service_thread *service);

// Minor page faults of the service request thread for a small request.
double page_faults_per_request(const service_thread &service);

// Requests a second over one socket by those over another, from one client in turns.
double socket_throughput_ratio(core_e core, const std::string &subject, const std::string &baseline,
                               nanoseconds slice);

}  // namespace bench
