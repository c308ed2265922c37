// SPDX-License-Identifier: MIT
#include "tests/support/Servers.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <utility>

extern char** environ;

namespace velor::test {
namespace {

void sleepFor(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

int exitStatus(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// JACK keeps a list of its servers in shared memory, which those that were killed
// fill up for good, and in which equal names of clients meet. So a test that may
// gets a view of its own; for what it starts, too. Before the first thread.
void takeOwnSharedMemory() {
  static const bool done = [] {
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", "/dev/shm", "tmpfs", 0, "mode=1777") == 0;
  }();
  static_cast<void>(done);  // without the right to it, the common one has to do
}

int runToEnd(const std::vector<std::string>& command, const std::vector<std::string>& environment) {
  Process process(command, environment, "/dev/null");
  return process.waitForEnd(10);
}

}  // namespace

bool waitFor(double seconds, const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return condition();
    }
    sleepFor(0.005);
  }
  return true;
}

Process::Process(const std::vector<std::string>& command,
                 const std::vector<std::string>& environment, const std::string& output,
                 const std::string& errors) {
  mId = fork();
  if (mId < 0) {
    throw std::runtime_error("fork failed");
  }
  if (mId > 0) {
    return;
  }
  const auto redirect = [](const std::string& path, int descriptor) {
    dup2(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), descriptor);
  };
  redirect(output, STDOUT_FILENO);
  redirect(errors.empty() ? output : errors, STDERR_FILENO);
  become(command, environment);
}

void become(const std::vector<std::string>& command, const std::vector<std::string>& environment) {
  // A test that is killed takes its servers along.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (const std::string& entry : environment) {
    putenv(strdup(entry.c_str()));
  }
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  std::perror(arguments[0]);
  _exit(127);
}

Process::Process(Process&& other) noexcept : mId(std::exchange(other.mId, -1)) {}

Process& Process::operator=(Process&& other) noexcept {
  if (this != &other) {
    end(SIGTERM);
    mId = std::exchange(other.mId, -1);
  }
  return *this;
}

Process::~Process() {
  end(SIGTERM);
}

bool Process::isRunning() {
  return waitForEnd(0) == -1 && mId > 0;
}

int Process::waitForEnd(double seconds) {
  if (mId <= 0) {
    return -1;
  }
  int status = 0;
  pid_t ended = 0;
  waitFor(seconds, [&] { return (ended = waitpid(mId, &status, WNOHANG)) != 0; });
  if (ended != mId) {
    return -1;
  }
  mId = -1;
  return exitStatus(status);
}

bool Process::signal(int number) {
  return isRunning() && ::kill(mId, number) == 0;
}

int Process::end(int signal) {
  if (mId <= 0) {
    return -1;
  }
  ::kill(mId, signal);
  const int status = waitForEnd(10);
  if (status != -1 || mId <= 0) {
    return status;
  }
  ::kill(mId, SIGKILL);
  return waitForEnd(10);
}

Process startBus(const std::string& path, const std::string& log) {
  // The rules of a session bus let its one user do all.
  Process bus(
      {"dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=unix:path=" + path}, {},
      log);
  waitFor(10, [&path] { return std::filesystem::exists(path); });
  return bus;
}

void Server::start() {
  for (const std::string& entry : environment()) {
    const auto split = entry.find('=');
    setenv(entry.substr(0, split).c_str(), entry.substr(split + 1).c_str(), 1);
  }
  run();
}

JackServer::JackServer(int period, int rate)
    : mName("velor-test-" + std::to_string(getpid())), mPeriod(period), mRate(rate) {
  takeOwnSharedMemory();
}

void JackServer::run() {
  const std::string log = mFolder.path().string() + "/jackd.log";
  mProcess = Process({"jackd", "--name", mName, "-R", "-S", "-d", "dummy", "-r",
                      std::to_string(mRate), "-p", std::to_string(mPeriod)},
                     {}, log);
  // `jack_wait -w` looks only once a second.
  const bool up = waitFor(10, [this] {
    return runToEnd({"sh", "-c", "jack_wait -s \"$0\" -c | grep -qx running", mName}, {}) == 0;
  });
  if (!mProcess.isRunning() || !up) {
    throw std::runtime_error("jackd did not start: " + fileContents(log));
  }
}

void JackServer::kill() {
  mProcess.end(SIGKILL);
}

std::vector<std::string> JackServer::environment() const {
  return {"JACK_DEFAULT_SERVER=" + mName, "JACK_NO_AUDIO_RESERVATION=1"};
}

std::vector<std::string> PipeWireServer::environment() const {
  return {"XDG_RUNTIME_DIR=" + mFolder.path().string(),
          "PIPEWIRE_RUNTIME_DIR=" + mFolder.path().string(),
          "DBUS_SESSION_BUS_ADDRESS=unix:path=" + mFolder.path().string() + "/bus",
          "JACK_NO_START_SERVER=1",
          "JACK_DEFAULT_SERVER=velor-test-none"};  // the other library finds nothing
}

void PipeWireServer::run() {
  const std::string log = mFolder.path().string() + "/pipewire.log";
  auto all = environment();
  all.push_back("XDG_CONFIG_HOME=" + mFolder.path().string() + "/config");
  all.push_back("XDG_STATE_HOME=" + mFolder.path().string() + "/state");
  mBus = startBus(mFolder.path().string() + "/bus", log);
  mServer = Process({"pipewire"}, all, log);
  waitFor(10, [this] { return std::filesystem::exists(mFolder.path().string() + "/pipewire-0"); });
  mManager = Process({"wireplumber"}, all, log);
  // A sink that drives the graph: without one nothing runs.
  const bool up = waitFor(15, [&all] {
    return runToEnd({"pw-cli", "create-node", "adapter",
                     "{ factory.name=support.null-audio-sink node.name=velor-null "
                     "media.class=Audio/Sink object.linger=true "
                     "audio.position=[FL FR] }"},
                    all) == 0;
  });
  // Its ports come one by one, when the manager has seen it.
  const bool hasPorts =
      up && waitFor(15, [&all] {
        return runToEnd({"sh", "-c", "pw-link -i | grep -q velor-null:playback_FR"}, all) == 0;
      });
  if (!hasPorts || !mServer.isRunning()) {
    throw std::runtime_error("PipeWire did not start: " + fileContents(log));
  }
}

void PipeWireServer::kill() {
  mManager.end(SIGKILL);
  mServer.end(SIGKILL);
  mBus.end(SIGKILL);
  std::error_code ignored;
  std::filesystem::remove(mFolder.path().string() + "/bus", ignored);
  std::filesystem::remove(mFolder.path().string() + "/pipewire-0", ignored);
}

void PipeWireServer::force(int rate, int period) {
  const auto all = environment();
  runToEnd({"pw-metadata", "-n", "settings", "0", "clock.force-rate", std::to_string(rate)}, all);
  runToEnd({"pw-metadata", "-n", "settings", "0", "clock.force-quantum", std::to_string(period)},
           all);
}

std::string AvahiServer::busPath() {
  // The bus library takes the address once in a process.
  static const TemporaryFolder folder;
  return folder.path().string() + "/bus";
}

std::vector<std::string> AvahiServer::environment() const {
  return {"DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + busPath()};
}

void AvahiServer::run() {
  const std::string folder = mFolder.path().string();
  if (!mBus.isRunning()) {
    killBus();
    mBus = startBus(busPath(), folder + "/bus.log");
  }
  std::ofstream(folder + "/avahi.conf")
      << "[server]\nhost-name=velor-test\nallow-interfaces=lo\nuse-ipv6=no\n"
         "[wide-area]\nenable-wide-area=no\n"
         "[publish]\npublish-hinfo=no\npublish-workstation=no\n";
  // A network of its own, so that nothing is sent to others; and a /run of its own,
  // where the daemon's process id and socket have fixed places.
  std::vector<std::string> command = {"unshare", "--net", "--mount", "--propagation", "private"};
  if (geteuid() != 0) {
    command.insert(command.end(), {"--user", "--map-current-user", "--keep-caps"});
  }
  command.insert(command.end(),
                 {"sh", "-c",
                  "mount -t tmpfs tmpfs /run && mkdir /run/avahi-daemon && ip link set lo up && "
                  "ip link set lo multicast on && exec avahi-daemon --no-drop-root --no-chroot "
                  "--no-rlimits -f \"$0\"",
                  folder + "/avahi.conf"});
  const std::string log = folder + "/avahi-" + std::to_string(++mStarts) + ".log";
  mDaemon = Process(command, environment(), log);
  const bool up = waitFor(10, [this, &log] {
    return !mDaemon.isRunning() ||
           fileContents(log).find("Server startup complete") != std::string::npos;
  });
  if (!up || !mDaemon.isRunning()) {
    throw std::runtime_error("avahi-daemon did not start: " + fileContents(log));
  }
}

void AvahiServer::kill() {
  mDaemon.end(SIGKILL);
}

void AvahiServer::killBus() {
  mBus.end(SIGKILL);
  std::error_code ignored;
  std::filesystem::remove(busPath(), ignored);
}

}  // namespace velor::test
