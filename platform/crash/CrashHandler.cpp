// SPDX-License-Identifier: MIT
#include "platform/crash/CrashHandler.h"

#include <cxxabi.h>
#include <execinfo.h>
#include <gnu/libc-version.h>
#include <link.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <memory>
#include <string_view>
#include <typeinfo>

#include "platform/crash/CrashOutput.h"
#include "platform/crash/LoadedCode.h"
#include "platform/host/LogTail.h"
#include "platform/host/SignalStack.h"

namespace velor::crash {
namespace {

constexpr std::array kSignals = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr unsigned kPatience = 5;  // seconds, for the whole report
constexpr int kMostFrames = 64;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kHasSanitizer = true;
#elif defined(__has_feature)
constexpr bool kHasSanitizer = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kHasSanitizer = false;
#endif

// The handler only reads these: `install` fills them in.
std::array<char, 512> gProgram{};  // version, build and system, a line each
time_t gStart = 0;                 // monotonic seconds
std::terminate_handler gFormerTerminate = nullptr;

// The exception that ends the program.
std::atomic<bool> gHasException{false};
std::array<char, 512> gException{};

// The crash that is reported: the first one.
std::atomic<pid_t> gReporter{0};  // the thread
std::atomic<std::size_t> gNextPart{0};
int gSignal = 0;
siginfo_t gInfo{};
ucontext_t* gContext = nullptr;
CrashOutput gOutput;

pid_t thisThread() noexcept {
  return static_cast<pid_t>(syscall(SYS_gettid));
}

time_t secondsOf(clockid_t clock) noexcept {
  timespec now{};
  clock_gettime(clock, &now);
  return now.tv_sec;
}

const char* nameOf(int number) noexcept {
  const char* const name = sigabbrev_np(number);  // without "SIG"
  return name != nullptr ? name : "?";
}

// Where the thread was; 0 on a processor that is not known here.
std::uintptr_t placeOf(const ucontext_t& context) noexcept {
#if defined(__x86_64__)
  return static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RIP]);
#elif defined(__aarch64__)
  return context.uc_mcontext.pc;
#else
  static_cast<void>(context);
  return 0;
#endif
}

// After a call of an address that is no code there is nothing to walk from, and the walk
// would crash as well. Goes back to the place after the call, if it is one.
bool returnFromBadCall(ucontext_t& context) noexcept {
  if (gInfo.si_code <= 0 || placeOf(context) != reinterpret_cast<std::uintptr_t>(gInfo.si_addr)) {
    return false;
  }
#if defined(__x86_64__)
  auto& registers = context.uc_mcontext.gregs;
  registers[REG_RIP] = *reinterpret_cast<const greg_t*>(registers[REG_RSP]);
  registers[REG_RSP] += static_cast<greg_t>(sizeof(greg_t));
#elif defined(__aarch64__)
  context.uc_mcontext.pc = context.uc_mcontext.regs[30];
#endif
  return true;
}

void writeHead() noexcept {
  std::array<char, 16> thread{};
  prctl(PR_GET_NAME, thread.data());
  const time_t now = secondsOf(CLOCK_REALTIME);
  gOutput.open(now, nameOf(gSignal));
  gOutput << "Velor crashed. This report stays on this machine; nothing sends it. The lines of\n"
             "the log may name documents, hosts, ports and devices: read them before you pass\n"
             "the report on.\n\n"
          << "signal   SIG" << nameOf(gSignal) << ", code ";
  gOutput << (gInfo.si_code < 0 ? "-" : "");
  gOutput.decimal(static_cast<std::uint64_t>(std::abs(gInfo.si_code)));
  if (gInfo.si_code > 0) {
    gOutput << ", address ";
    gOutput.hexadecimal(reinterpret_cast<std::uintptr_t>(gInfo.si_addr));
  } else if (gInfo.si_pid != getpid()) {
    gOutput << ", sent by process ";
    gOutput.decimal(static_cast<std::uint64_t>(gInfo.si_pid));
  }
  gOutput << "\ntime     ";
  gOutput.date(now) << " UTC, ";
  gOutput.decimal(static_cast<std::uint64_t>(secondsOf(CLOCK_MONOTONIC) - gStart))
      << " s after the start\nthread   ";
  gOutput.quote(thread.data()) << "\n";
  if (gHasException.load()) {
    gOutput << "thrown   ";
    gOutput.quote(gException.data()) << "\n";
  }
  gOutput << gProgram.data();
  gOutput.flush();
}

void writeFrame(std::size_t number, std::uintptr_t address) noexcept {
  const LoadedCode code = LoadedCode::at(address);
  gOutput << (number < 10 ? " " : "");
  gOutput.decimal(number) << "  ";
  if (code.file == nullptr) {
    gOutput.hexadecimal(address) << "\n";
    return;
  }
  const std::string_view path = *code.file == 0 ? "velor" : code.file;
  gOutput.quote(path.substr(path.rfind('/') + 1)) << "+";
  gOutput.hexadecimal(code.offset);
  if (code.function != nullptr) {
    gOutput << "  " << code.function << "+";
    gOutput.hexadecimal(code.functionOffset);
  }
  gOutput << "\n";
  gOutput.flush();
}

void writeStack() noexcept {
  gOutput << "\nStack (names: c++filt <REPORT; lines: addr2line -Cfie velor 0x..., with the velor\n"
             "of this build id, or with its debug symbols)\n";
  std::size_t number = 0;
  writeFrame(number++, placeOf(*gContext));  // first, since a walk of a torn stack crashes
  const bool hasReturned = returnFromBadCall(*gContext);
  std::array<void*, kMostFrames> frames{};
  const int count = backtrace(frames.data(), kMostFrames);
  void** const end = frames.data() + std::max(count, 0);
  // The handler's own frames come before it.
  void** frame = std::find(frames.data(), end, reinterpret_cast<void*>(placeOf(*gContext)));
  if (frame == end) {
    frame = frames.data();
  } else if (!hasReturned) {
    ++frame;
  }
  for (; frame != end; ++frame) {
    // The place after a call may be in the next function.
    writeFrame(number++, reinterpret_cast<std::uintptr_t>(*frame) - 1);
  }
  gOutput << (count == kMostFrames ? "...\n" : "");
  gOutput.flush();
}

void writeLog() noexcept {
  host::LogTail& tail = host::LogTail::shared();
  tail.close();
  gOutput << "\nLast lines of the log (UTC)\n";
  for (std::size_t i = 0; i < tail.size(); ++i) {
    const host::LogTail::Line& line = tail[i];
    gOutput.timeOfDay(line.time) << "  ";
    gOutput.quote({line.text.data(), line.size}) << "\n";
  }
  gOutput.flush();
}

// A crash within one of them goes on with the next.
constexpr std::array<void (*)() noexcept, 3> kParts = {&writeHead, &writeStack, &writeLog};

[[noreturn]] void dieBySignal(int number, siginfo_t& info) noexcept {
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  sigaction(number, &standard, nullptr);
  sigset_t unblocked;
  sigemptyset(&unblocked);
  sigaddset(&unblocked, number);
  pthread_sigmask(SIG_UNBLOCK, &unblocked, nullptr);
  // As it came, for those who read the core dump.
  syscall(SYS_rt_tgsigqueueinfo, getpid(), thisThread(), number, &info);
  raise(number);
  _exit(128 + number);  // the first process of a container is ended by no signal
}

void onTooLong(int /*number*/) {
  dieBySignal(gSignal, gInfo);
}

void limitTime() noexcept {
  struct sigaction tooLong {};
  tooLong.sa_handler = &onTooLong;
  sigaction(SIGALRM, &tooLong, nullptr);
  sigset_t unblocked;
  sigemptyset(&unblocked);
  sigaddset(&unblocked, SIGALRM);
  pthread_sigmask(SIG_UNBLOCK, &unblocked, nullptr);
  alarm(kPatience);
}

// Errors of a write, and not another end of the program.
void ignoreWriteSignals() noexcept {
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignored, nullptr);
  sigaction(SIGXFSZ, &ignored, nullptr);
}

void onCrash(int number, siginfo_t* info, void* context) {
  const pid_t self = thisThread();
  pid_t reporter = 0;
  if (gReporter.compare_exchange_strong(reporter, self)) {
    gSignal = number;
    gInfo = *info;
    gContext = static_cast<ucontext_t*>(context);
    limitTime();
    ignoreWriteSignals();
  } else if (reporter == self) {
    gOutput << "\n(SIG" << nameOf(number) << " in this part of the report)\n";
  } else {
    // Another thread crashed first, and ends the process when its report is written.
    for (unsigned seconds = 0; seconds < 2 * kPatience; ++seconds) {
      const timespec aWhile{1, 0};
      nanosleep(&aWhile, nullptr);
    }
    dieBySignal(number, *info);
  }
  for (std::size_t part = gNextPart++; part < kParts.size(); part = gNextPart++) {
    kParts[part]();
  }
  gOutput.end();
  dieBySignal(gSignal, gInfo);
}

// Not within a signal handler.
[[noreturn]] void onTerminate() {
  if (std::current_exception() != nullptr && !gHasException.exchange(true)) {
    try {
      throw;
    } catch (const std::exception& exception) {
      const std::unique_ptr<char, decltype(&std::free)> name(
          abi::__cxa_demangle(typeid(exception).name(), nullptr, nullptr, nullptr), &std::free);
      std::snprintf(gException.data(), gException.size(), "%s: %s",
                    name != nullptr ? name.get() : "?", exception.what());
    } catch (...) {
      std::snprintf(gException.data(), gException.size(), "not a std::exception");
    }
  }
  gFormerTerminate();  // says so on standard error
  std::abort();
}

int findBuildId(dl_phdr_info* program, std::size_t /*bytes*/, void* found) {
  for (int i = 0; i < program->dlpi_phnum; ++i) {
    const ElfW(Phdr)& part = program->dlpi_phdr[i];
    if (part.p_type != PT_NOTE) {
      continue;
    }
    const auto* at = reinterpret_cast<const char*>(program->dlpi_addr + part.p_vaddr);
    const auto* const end = at + part.p_memsz;
    while (at < end) {
      const auto& note = *reinterpret_cast<const ElfW(Nhdr)*>(at);
      const char* const name = at + sizeof note;
      const char* const bytes = name + (note.n_namesz + 3) / 4 * 4;
      if (note.n_type == NT_GNU_BUILD_ID && std::strcmp(name, "GNU") == 0) {
        *static_cast<std::string_view*>(found) = {bytes, note.n_descsz};
        return 1;
      }
      at = bytes + (note.n_descsz + 3) / 4 * 4;
    }
  }
  return 1;  // the first one is the program
}

void describeProgram(const std::string& version) {
  std::string_view buildId;
  dl_iterate_phdr(&findBuildId, &buildId);
  std::string text = "version  " + version + "\nbuild id ";
  for (const char each : buildId) {
    constexpr const char* kDigits = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(each);
    text += {kDigits[byte / 16], kDigits[byte % 16]};
  }
  utsname system{};
  uname(&system);
  text += std::string("\nsystem   ") + system.sysname + " " + system.release + " " +
          system.machine + ", glibc " + gnu_get_libc_version() + "\n";
  text.resize(std::min(text.size(), gProgram.size() - 1));
  std::copy(text.begin(), text.end(), gProgram.begin());
}

}  // namespace

void CrashHandler::install(const std::filesystem::path& folder, const std::string& version) {
  if (kHasSanitizer) {
    return;
  }
  static const host::SignalStack ofMainThread;
  gOutput.setFolder(folder.native());
  gStart = secondsOf(CLOCK_MONOTONIC);
  describeProgram(version);
  // The first call loads a library.
  std::array<void*, 2> frames{};
  backtrace(frames.data(), static_cast<int>(frames.size()));
  gFormerTerminate = std::set_terminate(&onTerminate);
  struct sigaction action {};
  action.sa_sigaction = &onCrash;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  for (const int number : kSignals) {
    sigaction(number, &action, nullptr);
  }
}

}  // namespace velor::crash
