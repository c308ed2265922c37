// SPDX-License-Identifier: MIT
#pragma once

#include <sys/resource.h>

#include <csignal>

namespace velor::test {

/// A disk that is full, as far as one process can have it: while this lives, no file of the
/// process grows past so many bytes.
class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) : mHandler(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &mFormer);
    const rlimit small{bytes, mFormer.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &mFormer);
    std::signal(SIGXFSZ, mHandler);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  void (*mHandler)(int);
  rlimit mFormer{};
};

}  // namespace velor::test
