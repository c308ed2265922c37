// SPDX-License-Identifier: MIT
#include "platform/store/DamagedFile.h"

#include <system_error>

#include "platform/store/ReplacementFile.h"

namespace velor::store {

std::string DamagedFile::keep(const std::filesystem::path& file,
                              const std::filesystem::path& aside) {
  constexpr auto kOverwrite = std::filesystem::copy_options::overwrite_existing;
  const auto kept = ReplacementFile::create(aside, 0600).and_then([&](ReplacementFile copy) {
    std::error_code error;
    std::filesystem::copy_file(file, copy.name(), kOverwrite, error);
    return error ? Expected<>(failure(error.message())) : copy.takePlace();
  });
  return kept ? "the file is kept as " + aside.string()
              : "cannot keep a copy of the file: " + kept.error().text;
}

}  // namespace velor::store
