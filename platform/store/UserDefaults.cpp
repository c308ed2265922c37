// SPDX-License-Identifier: MIT
#include "platform/store/UserDefaults.h"

#include <system_error>

#include "platform/host/Log.h"
#include "platform/store/AtomicFile.h"
#include "platform/store/DamagedFile.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor::store {

Expected<> UserDefaults::read(const std::function<void(KeyedUnarchiver&)>& decode) const {
  std::error_code ignored;
  if (!std::filesystem::exists(mFile, ignored)) {
    return {};
  }
  auto file = KeyedUnarchiver::readFile(mFile, mClasses);
  if (!file) {
    return putAside(file.error().text);
  }
  decode(*file);
  const auto values = file->check();
  return values ? Expected<>() : putAside(values.error().text);
}

std::filesystem::path UserDefaults::damagedName() const {
  return mFile.string() + ".damaged";
}

tl::unexpected<Error> UserDefaults::putAside(const std::string& damage) const {
  const std::filesystem::path aside = damagedName();
  std::error_code error;
  std::filesystem::rename(mFile, aside, error);
  return failure("cannot read the settings in " + mFile.string() + ": " + damage +
                 "; using defaults, the file " +
                 (error ? "stays" : "is kept as " + aside.string()));
}

void UserDefaults::keepDamaged(const std::string& damage) const {
  VELOR_LOG_WARNING("cannot read all settings in %s: %s; using defaults for these, and %s",
                    mFile.c_str(), damage.c_str(), DamagedFile::keep(mFile, damagedName()).c_str());
}

Expected<> UserDefaults::write(const std::function<void(KeyedArchiver&)>& encode) const {
  KeyedArchiver archiver;
  encode(archiver);
  return archiver.data().and_then(
      [this](const std::string& document) { return AtomicFile::write(mFile, document); });
}

}  // namespace velor::store
