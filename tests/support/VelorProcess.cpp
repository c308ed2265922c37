// SPDX-License-Identifier: MIT
#include "tests/support/VelorProcess.h"

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>

namespace velor::test {

std::vector<std::string> VelorFolders(const TemporaryFolder& folder) {
  const std::string path = folder.path().string();
  return {"XDG_DATA_HOME=" + path + "/data", "XDG_CONFIG_HOME=" + path + "/config",
          "XDG_STATE_HOME=" + path + "/state"};
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
                                 const std::vector<std::string>& environment) {
  winsize size{};
  size.ws_col = columns;
  size.ws_row = 24;
  mId = forkpty(&mTerminal, nullptr, nullptr, &size);
  if (mId != 0) {
    return;
  }
  for (const std::string& entry : VelorFolders(mFolder)) {
    putenv(strdup(entry.c_str()));
  }
  for (const std::string& entry : environment) {
    putenv(strdup(entry.c_str()));
  }
  arguments.insert(arguments.begin(), VELOR_PROGRAM);
  std::vector<char*> pointers;
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
  execv(VELOR_PROGRAM, pointers.data());
  _exit(127);
}

VelorOnTerminal::~VelorOnTerminal() {
  if (mId > 0) {
    end(SIGKILL);
  }
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

int VelorOnTerminal::endUnread(int signal, double seconds) {
  if (mId <= 0) {
    return -1;  // never kill(-1, ...): that is everybody
  }
  kill(mId, signal);
  int status = 0;
  if (!waitFor(seconds, [&] { return waitpid(mId, &status, WNOHANG) == mId; })) {
    return -1;
  }
  mId = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int VelorOnTerminal::end(int signal) {
  if (mId <= 0) {
    return -1;
  }
  kill(mId, signal);
  while (readSome(5000)) {
  }
  int status = 0;
  waitpid(mId, &status, 0);
  mId = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace velor::test
