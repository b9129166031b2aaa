#include "sim/scenario/scenario_files.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "base/nearest_names.h"

namespace sim {

namespace {

// Beside the folder of the program, installed or in the build tree.
std::filesystem::path folder() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    return program.parent_path().parent_path() / "share/nyx-agent/scenarios";
}

// One byte more than a scenario may have, so that a longer one is refused.
std::string read(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    std::string text(k_max_scenario_bytes + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (file.bad() || (file.gcount() == 0 && !file.eof())) {
        throw std::out_of_range("scenario \"" + path.string() + "\" cannot be read");
    }
    text.resize(static_cast<size_t>(file.gcount()));
    return text;
}

}  // namespace

std::vector<std::string> scenario_names() {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto &file : std::filesystem::directory_iterator(folder(), error)) {
        if (file.path().extension() == ".toml") {
            names.push_back(file.path().stem());
        }
    }
    std::ranges::sort(names);
    return names;
}

std::string scenario_text(const std::string &name) {
    const auto names = scenario_names();
    if (!std::ranges::binary_search(names, name)) {
        throw std::out_of_range("unknown scenario \"" + name.substr(0, 64) + "\"" +
                                base::nearest_or_known_text(name, names));
    }
    return read(folder() / (name + ".toml"));
}

scenario_s load_scenario(const std::string &name_or_file) {
    const bool is_file = name_or_file.find_first_of("/.") != std::string::npos;
    return parse_scenario(is_file ? read(name_or_file) : scenario_text(name_or_file));
}

}  // namespace sim
