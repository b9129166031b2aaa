// A folder for one test.

#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace test {

// New and empty; removed at the end with everything in it.
class temporary_folder {
 public:
    temporary_folder() : path_((std::filesystem::temp_directory_path() / "nyx-test-XXXXXX").string()) {
        if (!mkdtemp(path_.data())) {
            throw std::runtime_error("cannot create " + path_);
        }
    }
    temporary_folder(const temporary_folder &) = delete;
    temporary_folder &operator=(const temporary_folder &) = delete;
    ~temporary_folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

 private:
    std::string path_;
};

}  // namespace test
