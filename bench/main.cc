// Measures the product against what it can't be faster than, and prints the ratios.

#include <google/protobuf/stubs/common.h>
#include <grpcpp/grpcpp.h>
#include <stdlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "bench/entries.h"
#include "bench/figures.h"
#include "bench/parts.h"
#include "bench/platform.h"
#include "bench/service_thread.h"

namespace {

constexpr char k_usage[] =
    "usage: nyx_bench [--quick] [--filter REGEX] [--output FOLDER]\n"
    "\n"
    "  --quick         a few seconds: shows that everything runs, the figures say little\n"
    "  --filter REGEX  measures only what matches\n"
    "  --output FOLDER where results.txt and results.json go (default: bench-results in the build folder)\n";

struct options_s {
    int rounds = 30;
    bench::nanoseconds slice = std::chrono::milliseconds(100);
    std::string filter;
    std::filesystem::path output =
        std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "bench-results";
};

bool parse(int argc, char **argv, options_s *options) {
    for (int i = 1; i < argc; i++) {
        if (strcmp(argv[i], "--quick") == 0) {
            options->rounds = 1;
            options->slice = std::chrono::milliseconds(20);
        } else if (strcmp(argv[i], "--filter") == 0 && i + 1 < argc) {
            options->filter = argv[++i];
        } else if (strcmp(argv[i], "--output") == 0 && i + 1 < argc) {
            options->output = argv[++i];
        } else {
            return false;
        }
    }
    return true;
}

void print_conditions(FILE *output) {
    double load = 0;
    (void)getloadavg(&load, 1);
    fprintf(output, "%s\ng++ %s, %u cores with a load of %.2f, gRPC %s, protobuf %s\n", NYX_BUILD,
            __VERSION__, std::thread::hardware_concurrency(), load, grpc::Version().c_str(),
            google::protobuf::internal::VersionString(GOOGLE_PROTOBUF_VERSION).c_str());
    fprintf(output, "entries of 34 fields, %zu bytes in the record, %zu on the wire\n\n",
            sizeof(nyx_tbl_flow_spec_s), bench::flow_entries(1).request(0).ByteSizeLong());
    fflush(output);
}

void write_results(const std::filesystem::path &folder, const bench::ratio_table &table) {
    std::filesystem::create_directories(folder);
    const std::unique_ptr<FILE, decltype(&fclose)> text(fopen((folder / "results.txt").c_str(), "we"),
                                                        fclose);
    if (!text) {
        bench::fail(folder.string() + ": " + strerror(errno));
    }
    print_conditions(text.get());
    table.print(text.get());
    std::ofstream(folder / "results.json") << table.json();
    printf("\nWritten to %s: results.txt and results.json\n", folder.c_str());
}

void measure(const options_s &options, bench::service_thread *service) {
    bench::ratio_table table;
    bench::add_conversion(&table);
    bench::add_grpc(&table);
    bench::add_mac_file(&table);
    bench::add_socket(&table, service);
    bench::add_page_faults(&table, service);
    bench::add_start(&table);
    bench::add_table_stream(&table);
    table.filter(options.filter);
    table.measure(options.rounds, options.slice);
    table.print(stdout);
    write_results(options.output, table);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc > 2 && strcmp(argv[1], "--part") == 0) {
        return bench::run_part(argv[2], {argv + 3, argv + argc});
    }
    options_s options;
    if (!parse(argc, argv, &options)) {
        fputs(k_usage, stderr);
        return 2;
    }
    bench::service_thread service;
    bench::check_replacements();
    print_conditions(stdout);
    measure(options, &service);
    return 0;
}
