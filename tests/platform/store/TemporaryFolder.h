// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace velor::store {

/// A folder of a test's own, which goes with the test.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "velor-test-XXXXXX").string();
    mPath = mkdtemp(name.data()) != nullptr ? name : std::string();
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const noexcept { return mPath; }

 private:
  std::filesystem::path mPath;
};

}  // namespace velor::store
