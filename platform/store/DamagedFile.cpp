// SPDX-License-Identifier: MIT
#include "platform/store/DamagedFile.h"

#include <system_error>

namespace velor::store {

std::string DamagedFile::keep(const std::filesystem::path& file,
                              const std::filesystem::path& aside) {
  std::error_code error;
  std::filesystem::copy_file(file, aside, std::filesystem::copy_options::overwrite_existing, error);
  return error ? "the file cannot be kept: " + error.message()
               : "the file is kept as " + aside.string();
}

}  // namespace velor::store
