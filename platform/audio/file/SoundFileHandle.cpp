// SPDX-License-Identifier: MIT
#include "platform/audio/file/SoundFileHandle.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace velor::audio {

// `user` is the handle; the descriptor holds the position.
struct SoundFileHandle::Calls {
  static SoundFileHandle& handle(void* user) { return *static_cast<SoundFileHandle*>(user); }

  static sf_count_t length(void* user) {
    struct stat status {};
    return fstat(handle(user).mDescriptor, &status) == 0 ? status.st_size : -1;
  }
  static sf_count_t seek(sf_count_t offset, int whence, void* user) {
    return lseek(handle(user).mDescriptor, offset, whence);
  }
  static sf_count_t tell(void* user) { return seek(0, SEEK_CUR, user); }

  static sf_count_t read(void* data, sf_count_t count, void* user) {
    return whole(handle(user), count, [=](int file, sf_count_t done) {
      return ::read(file, static_cast<char*>(data) + done, static_cast<std::size_t>(count - done));
    });
  }
  static sf_count_t write(const void* data, sf_count_t count, void* user) {
    return whole(handle(user), count, [=](int file, sf_count_t done) {
      return ::write(file, static_cast<const char*>(data) + done,
                     static_cast<std::size_t>(count - done));
    });
  }

  // As many bytes as can be had.
  template <class Transfer>
  static sf_count_t whole(SoundFileHandle& self, sf_count_t count, const Transfer& transfer) {
    sf_count_t done = 0;
    while (done < count) {
      const ssize_t now = transfer(self.mDescriptor, done);
      if (now == 0) {
        break;
      }
      if (now > 0) {
        done += now;
      } else if (errno != EINTR) {
        self.mSystemError = self.mSystemError != 0 ? self.mSystemError : errno;
        break;
      }
    }
    return done;
  }
};

SoundFileHandle::SoundFileHandle(int descriptor, int mode, SF_INFO& info)
    : mDescriptor(descriptor) {
  SF_VIRTUAL_IO calls{Calls::length, Calls::seek, Calls::read, Calls::write, Calls::tell};
  mFile = sf_open_virtual(&calls, mode, &info, this);
  if (mFile == nullptr) {
    mLibraryError = sf_error(nullptr);
  }
}

SoundFileHandle::~SoundFileHandle() {
  close();
}

void SoundFileHandle::close() noexcept {
  if (mFile != nullptr) {
    mLibraryError = sf_error(mFile);
    const int closing = sf_close(std::exchange(mFile, nullptr));
    mLibraryError = mLibraryError != 0 ? mLibraryError : closing;
  }
}

std::string SoundFileHandle::failure() const {
  if (mSystemError != 0) {
    return std::generic_category().message(mSystemError);
  }
  const int number = mFile != nullptr ? sf_error(mFile) : mLibraryError;
  return number != 0 ? sf_error_number(number) : "";
}

}  // namespace velor::audio
