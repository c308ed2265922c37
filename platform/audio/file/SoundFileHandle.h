// SPDX-License-Identifier: MIT
#pragma once

#include <sndfile.h>

#include <string>

namespace velor::audio {

/// An open sound file of libsndfile on a descriptor that somebody else owns. Each read
/// and write goes through here, so that an error of the disk is known whenever it
/// comes: the library keeps some to itself, those of a file's last block above all.
/// Belongs to one thread. Realtime-safe: no.
class SoundFileHandle {
 public:
  /// `mode` and `info` as for sf_open.
  SoundFileHandle(int descriptor, int mode, SF_INFO& info);
  ~SoundFileHandle();
  SoundFileHandle(const SoundFileHandle&) = delete;
  SoundFileHandle& operator=(const SoundFileHandle&) = delete;

  /// Null when the library refused it, or after `close`.
  SNDFILE* get() const noexcept { return mFile; }
  /// Writes what is left to be written; `failure` then has the outcome.
  void close() noexcept;
  /// The first failure, of the system or else of the library, for people; empty if there
  /// was none.
  std::string failure() const;

 private:
  struct Calls;  // what the library calls

  const int mDescriptor;
  int mSystemError = 0;
  int mLibraryError = 0;
  SNDFILE* mFile;
};

}  // namespace velor::audio
