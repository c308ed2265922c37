// SPDX-License-Identifier: MIT
#include "tests/support/VelorProcess.h"

#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

namespace velor::test {

std::vector<std::string> VelorFolders(const TemporaryFolder& folder) {
  const std::string path = folder.path().string();
  return {"XDG_DATA_HOME=" + path + "/data", "XDG_CONFIG_HOME=" + path + "/config",
          "XDG_STATE_HOME=" + path + "/state"};
}

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

VelorProcess::VelorProcess(std::vector<std::string> arguments,
                           std::vector<std::string> environment) {
  arguments.insert(arguments.begin(), VELOR_PROGRAM);
  // The test's own settings come last, so that a caller's folder wins.
  const auto folders = VelorFolders(mFolder);
  environment.insert(environment.begin(), folders.begin(), folders.end());
  mProcess = Process(arguments, environment, mFolder.path().string() + "/out",
                     mFolder.path().string() + "/err");
}

std::string VelorProcess::output() const {
  return fileContents(mFolder.path().string() + "/out");
}
std::string VelorProcess::errors() const {
  return fileContents(mFolder.path().string() + "/err");
}

std::string VelorProcess::log() const {
  std::string text;
  const std::string folder = mFolder.path().string() + "/state/velor/Logs";
  if (std::filesystem::exists(folder)) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      text += fileContents(entry.path());
    }
  }
  return text;
}

VelorOnTerminal::VelorOnTerminal(unsigned short columns, std::vector<std::string> arguments,
                                 std::vector<std::string> environment) {
  winsize size{};
  size.ws_col = columns;
  size.ws_row = 24;
  const pid_t id = forkpty(&mTerminal, nullptr, nullptr, &size);
  if (id == 0) {
    arguments.insert(arguments.begin(), VELOR_PROGRAM);
    const auto folders = VelorFolders(mFolder);
    environment.insert(environment.begin(), folders.begin(), folders.end());
    become(arguments, environment);
  }
  mProcess = Process(id);
}

VelorOnTerminal::~VelorOnTerminal() {
  mProcess.end(SIGKILL);
  close(mTerminal);
}

bool VelorOnTerminal::readSome(int milliseconds) {
  pollfd entry{mTerminal, POLLIN, 0};
  if (poll(&entry, 1, milliseconds) <= 0) {
    return true;  // nothing yet
  }
  char buffer[4096];
  const ssize_t length = read(mTerminal, buffer, sizeof buffer);
  if (length <= 0) {
    return false;  // it has ended
  }
  mText.append(buffer, static_cast<std::size_t>(length));
  return true;
}

bool VelorOnTerminal::readUntil(const std::string& part, double seconds) {
  bool open = true;
  return waitFor(seconds,
                 [&] {
                   open = open && readSome(1);
                   return mText.find(part) != std::string::npos || !open;
                 }) &&
         mText.find(part) != std::string::npos;
}

void VelorOnTerminal::hold() {
  const char stop = 0x13;
  [[maybe_unused]] const ssize_t written = write(mTerminal, &stop, 1);
}

// Also to one that has just ended, whose status is still to be read.
void VelorOnTerminal::send(int signal) {
  if (mProcess.id() > 0) {
    kill(mProcess.id(), signal);
  }
}

int VelorOnTerminal::endUnread(int signal, double seconds) {
  send(signal);
  return mProcess.waitForEnd(seconds);
}

int VelorOnTerminal::end(int signal) {
  send(signal);
  while (readSome(5000)) {
  }
  return mProcess.waitForEnd(10);
}

}  // namespace velor::test
