// SPDX-License-Identifier: MIT
// Runs a fuzz target on files and on all files of folders, where libFuzzer is not
// linked. A finding ends the program. So does a run without a file: it would show
// nothing.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool runFile(const std::filesystem::path& path) {
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
    if (!std::filesystem::is_directory(argv[i])) {
      if (!runFile(argv[i])) {
        return 1;
      }
      ++files;
      continue;
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
      if (entry.is_regular_file()) {
        if (!runFile(entry.path())) {
          return 1;
        }
        ++files;
      }
    }
  }
  std::printf("%zu files\n", files);
  return files > 0 ? 0 : 1;
}
