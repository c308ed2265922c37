// SPDX-License-Identifier: MIT
#include "Velor/program/VLProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace velor {
namespace {

constexpr std::chrono::milliseconds kQuiet{1000};
constexpr std::chrono::milliseconds kInterval{100};
constexpr int kColumns = 40;

}  // namespace

VLProgressBar::VLProgressBar(std::string what)
    : mWhat(std::move(what)),
      mIsTerminal(isatty(STDERR_FILENO) == 1),
      mNext(Clock::now() + kQuiet) {}

VLProgressBar::~VLProgressBar() {
  if (mIsShown) {
    std::fputs("\r\033[K", stderr);
  }
}

void VLProgressBar::show(double part) {
  if (!mIsTerminal || Clock::now() < mNext) {
    return;
  }
  mNext = Clock::now() + kInterval;
  mIsShown = true;
  const int percent = static_cast<int>(std::clamp(part, 0.0, 1.0) * 100);
  const std::string done(static_cast<std::size_t>(percent * kColumns / 100), '#');
  std::fprintf(stderr, "\r%s [%-*s] %3d %%", mWhat.c_str(), kColumns, done.c_str(), percent);
}

}  // namespace velor
