// Runs a fuzz target once over each file of the folders given, without a fuzzer: what was found once stays found.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

void replay(const std::filesystem::path &path) {
    fprintf(stderr, "%s\n", path.c_str());  // the last line names the file that ended the process
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char **argv) {
    int files = 0;
    for (int i = 1; i < argc; i++) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            replay(entry.path());
            files++;
        }
    }
    return files ? 0 : 1;
}
