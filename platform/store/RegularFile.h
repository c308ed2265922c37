// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <utility>

#include "platform/host/Error.h"

namespace velor::store {

/// A file with contents, open for reading as long as the object lives. Folders,
/// devices, and pipes, which would wait for somebody who writes, are refused.
/// Belongs to one thread; it waits for the disk. Realtime-safe: no.
class RegularFile {
 public:
  static Expected<RegularFile> open(const std::filesystem::path& path);
  ~RegularFile();
  RegularFile(RegularFile&& other) noexcept
      : mFile(std::exchange(other.mFile, -1)), mSize(other.mSize) {}
  RegularFile& operator=(RegularFile&&) = delete;

  /// Owned by this object.
  int descriptor() const noexcept { return mFile; }
  /// Bytes, when it was opened.
  std::uint64_t size() const noexcept { return mSize; }

 private:
  explicit RegularFile(int file) : mFile(file) {}

  int mFile;
  std::uint64_t mSize = 0;
};

}  // namespace velor::store
