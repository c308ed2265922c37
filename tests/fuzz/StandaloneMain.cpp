// SPDX-License-Identifier: MIT
// Runs a fuzz target on files and on all files of folders, where libFuzzer is not
// linked. A finding ends the program. So does a run without a file: it would show
// nothing.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tests/fuzz/FuzzTarget.h"

namespace {

namespace fs = std::filesystem;

bool runFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file),
                                std::istreambuf_iterator<char>()};
  if (!file) {
    std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
    return false;
  }
  const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t files = 0;
  for (int i = 1; i < argc; ++i) {
    std::vector<fs::path> paths;
    if (fs::is_directory(argv[i])) {
      paths.assign(fs::recursive_directory_iterator(argv[i]), fs::recursive_directory_iterator());
    } else {
      paths.emplace_back(argv[i]);
    }
    for (const fs::path& path : paths) {
      if (!fs::is_directory(path)) {
        if (!runFile(path)) {
          return 1;
        }
        ++files;
      }
    }
  }
  std::printf("%zu files\n", files);
  return files > 0 ? 0 : 1;
}
