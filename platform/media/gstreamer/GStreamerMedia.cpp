// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/GStreamerMedia.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/media/gstreamer/GStreamerLibrary.h"
#include "platform/media/gstreamer/GStreamerPlayer.h"

namespace velor::media {
namespace {

// Why the file cannot be opened; empty when it can. A pipe is not waited for.
std::string problemOf(const std::filesystem::path& path) {
  const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (file < 0) {
    return std::strerror(errno);
  }
  struct stat status {};
  const bool isKnown = fstat(file, &status) == 0;
  const std::string problem = !isKnown                   ? std::strerror(errno)
                              : S_ISDIR(status.st_mode)  ? "it is a folder"
                              : !S_ISREG(status.st_mode) ? "it is not a regular file"
                              : status.st_size == 0      ? "the file is empty"
                                                         : "";
  close(file);
  return problem;
}

}  // namespace

std::vector<std::string> GStreamerMedia::missingPackages() {
  if (!GStreamerLibrary::start().empty()) {
    return {"libgstreamer1.0-0"};
  }
  return GStreamerLibrary::missingPackages();
}

Expected<std::unique_ptr<Player>> GStreamerMedia::initWithURL(const PlayerRequest& request,
                                                              PlayerDelegate& delegate) {
  const std::string named = "cannot open '" + request.path.string() + "': ";
  if (const std::string problem = problemOf(request.path); !problem.empty()) {
    return failure(named + problem);
  }
  if (const std::string problem = GStreamerLibrary::start(); !problem.empty()) {
    return failure(named + problem);
  }
  return std::make_unique<GStreamerPlayer>(request, delegate);
}

}  // namespace velor::media
