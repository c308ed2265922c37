// SPDX-License-Identifier: MIT
#include "platform/store/UserDefaults.h"

#include <system_error>

#include "platform/host/Log.h"
#include "platform/store/AtomicFile.h"
#include "platform/store/DamagedFile.h"
#include "platform/store/KeyedArchiveError.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor::store {

std::string UserDefaults::read(const std::function<void(KeyedUnarchiver&)>& decode) const {
  std::error_code ignored;
  if (!std::filesystem::exists(mFile, ignored)) {
    return {};
  }
  try {
    const auto result = KeyedUnarchiver::readFile(mFile, mClasses);
    if (result) {
      decode(*result.coder);
      return {};
    }
    return putAside(result.error);
  } catch (const KeyedArchiveError& error) {
    return putAside(error.what());
  }
}

std::filesystem::path UserDefaults::damagedName() const {
  return mFile.string() + ".damaged";
}

std::string UserDefaults::putAside(const std::string& damage) const {
  const std::filesystem::path aside = damagedName();
  std::error_code error;
  std::filesystem::rename(mFile, aside, error);
  return "cannot read the settings in " + mFile.string() + ": " + damage +
         "; using defaults, the file " + (error ? "stays" : "is kept as " + aside.string());
}

void UserDefaults::keepDamaged(const std::string& damage) const {
  VELOR_LOG_WARNING(
      "settings in %s cannot all be read: %s; defaults are in force for these, and %s",
      mFile.c_str(), damage.c_str(), DamagedFile::keep(mFile, damagedName()).c_str());
}

bool UserDefaults::write(const std::function<void(KeyedArchiver&)>& encode) const {
  std::string error;
  try {
    KeyedArchiver archiver;
    encode(archiver);
    error = AtomicFile::write(mFile, archiver.data());
  } catch (const KeyedArchiveError& refused) {
    error = refused.what();
  }
  if (!error.empty()) {
    VELOR_LOG_WARNING("settings could not be written: %s", error.c_str());
  }
  return error.empty();
}

}  // namespace velor::store
