// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace velor::test {

/// A program that a test started; ends with it, by its process id.
class Process {
 public:
  Process() = default;
  /// `environment` holds "NAME=value" beyond the test's own. Standard output goes to
  /// the file `output`, standard error to `errors`, or to the same when that is empty.
  Process(const std::vector<std::string>& command, const std::vector<std::string>& environment,
          const std::string& output, const std::string& errors = "");
  /// A child that this process has forked.
  explicit Process(pid_t id) : mId(id) {}
  ~Process();
  Process(Process&& other) noexcept;
  Process& operator=(Process&& other) noexcept;

  pid_t id() const { return mId; }
  bool isRunning();
  /// False, and nothing is sent, when it has ended: its id may be anybody's then,
  /// and -1 would be everybody.
  bool signal(int number);
  /// Sends the signal, waits for the end (SIGKILL after 10 s) and gives the exit
  /// status, or 128 plus the signal that ended it.
  int end(int signal);
  /// Waits at most `seconds`; -1 when it still runs then.
  int waitForEnd(double seconds);

 private:
  pid_t mId = -1;
};

/// The child of a fork turns into the command.
[[noreturn]] void become(const std::vector<std::string>& command,
                         const std::vector<std::string>& environment);

/// A message bus at the path, which this is once it listens.
Process startBus(const std::string& path, const std::string& log);

/// A server under a name or in a folder of its own, beside any that runs.
/// `environment` is what its clients need.
class Server {
 public:
  virtual ~Server() = default;
  /// Makes this process one of its clients, too.
  void start();
  /// Ends at once, as a crash would.
  virtual void kill() = 0;
  virtual std::vector<std::string> environment() const = 0;

 private:
  virtual void run() = 0;
};

/// jackd with the dummy driver, in real time and waiting for its clients in each
/// cycle, so that a busy machine makes it late and not lossy.
class JackServer final : public Server {
 public:
  /// Frames. Under a sanitizer the first calls of a callback are slow, and jackd
  /// gives a client up that is later than a few cycles.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  static constexpr int kPeriod = 1024;
#else
  static constexpr int kPeriod = 128;
#endif
  explicit JackServer(int period = kPeriod, int rate = 48000);
  void kill() override;
  std::vector<std::string> environment() const override;
  /// The name of the server.
  const std::string& name() const {
    return mName;
  }

 private:
  void run() override;

  const std::string mName;
  const int mPeriod;
  const int mRate;
  TemporaryFolder mFolder;
  Process mProcess;
};

/// PipeWire with its session manager and a null sink under a session bus of its
/// own.
class PipeWireServer final : public Server {
 public:
  void kill() override;
  std::vector<std::string> environment() const override;
  /// Forces a sample rate and a period while it runs; 0 leaves one free.
  void force(int rate, int period);

 private:
  void run() override;

  TemporaryFolder mFolder;
  Process mBus;
  Process mServer;
  Process mManager;
};

/// An Avahi daemon with a system bus of its own, on a network that has a loopback
/// interface and nothing else; its host is "velor-test.local".
class AvahiServer final : public Server {
 public:
  /// The daemon alone; `start` starts the bus too, unless it runs.
  void kill() override;
  void killBus();
  std::vector<std::string> environment() const override;

 private:
  void run() override;
  static std::string busPath();

  TemporaryFolder mFolder;
  int mStarts = 0;
  Process mBus;
  Process mDaemon;
};

/// Polls `condition` every 5 ms, at most `seconds`; the last answer.
bool waitFor(double seconds, const std::function<bool()>& condition);

}  // namespace velor::test
