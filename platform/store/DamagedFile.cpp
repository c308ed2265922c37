// SPDX-License-Identifier: MIT
#include "platform/store/DamagedFile.h"

#include <system_error>

#include "platform/store/ReplacementFile.h"

namespace velor::store {

std::string DamagedFile::keep(const std::filesystem::path& file,
                              const std::filesystem::path& aside) {
  constexpr auto kOverwrite = std::filesystem::copy_options::overwrite_existing;
  ReplacementFile copy(aside, 0600);
  std::string problem = copy.error();
  if (problem.empty()) {
    std::error_code error;
    std::filesystem::copy_file(file, copy.name(), kOverwrite, error);
    problem = error ? error.message() : copy.takePlace();
  }
  return problem.empty() ? "the file is kept as " + aside.string()
                         : "cannot keep a copy of the file: " + problem;
}

}  // namespace velor::store
