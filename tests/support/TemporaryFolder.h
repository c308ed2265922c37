// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace velor::test {

/// A folder of a test's own, which goes with the test and all that is in it.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "velor-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("no temporary folder");
    }
    mPath = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const noexcept { return mPath; }
  /// Files and folders in it, those in its folders not counted.
  std::size_t size() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(mPath), {}));
  }

 private:
  std::filesystem::path mPath;
};

/// All bytes of a file; none where there is no such file.
inline std::string fileContents(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

/// Its permissions, as chmod takes them; more than it takes where there is no such file.
inline mode_t modeOf(const std::filesystem::path& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : ~mode_t{0};
}

}  // namespace velor::test
