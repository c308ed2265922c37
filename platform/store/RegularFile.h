// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace velor::store {

/// A file with contents, open for reading as long as the object lives. Folders,
/// devices, and pipes, which would wait for somebody who writes, are refused.
/// Belongs to one thread; it waits for the disk. Realtime-safe: no.
class RegularFile {
 public:
  explicit RegularFile(const std::filesystem::path& path);
  ~RegularFile();
  RegularFile(const RegularFile&) = delete;
  RegularFile& operator=(const RegularFile&) = delete;

  /// Why it is not open, for people, with the path; empty: all is well.
  const std::string& error() const noexcept { return mError; }
  /// Owned by this object.
  int descriptor() const noexcept { return mFile; }
  /// Bytes, when it was opened.
  std::uint64_t size() const noexcept { return mSize; }

 private:
  std::string mError;
  int mFile;
  std::uint64_t mSize = 0;
};

}  // namespace velor::store
