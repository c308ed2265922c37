// SPDX-License-Identifier: MIT
// Runs a fuzz target on files and on all files of folders, where libFuzzer is not
// linked. A finding ends the program. So does a run without a file: it would show
// nothing.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tests/fuzz/FuzzTarget.h"

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> paths;
  for (int i = 1; i < argc; ++i) {
    if (!fs::is_directory(argv[i])) {
      paths.emplace_back(argv[i]);
      continue;
    }
    for (const auto& entry : fs::recursive_directory_iterator(argv[i])) {
      if (!entry.is_directory()) {
        paths.push_back(entry.path());
      }
    }
  }
  for (const fs::path& path : paths) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
      std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
      return 1;
    }
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  std::printf("%zu files\n", paths.size());
  return paths.empty() ? 1 : 0;
}
