// SPDX-License-Identifier: MIT
#include "platform/store/LogFile.h"

#include <pthread.h>
#include <spdlog/async_logger.h>
#include <spdlog/details/thread_pool.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

#include "platform/host/SignalStack.h"
#include "platform/store/Printable.h"
#include "platform/store/RollingFileSink.h"

namespace velor::store {
namespace {

// In addition to the lines that may wait: for errors, each of which a thread waits for,
// and for the line about a gap before one.
constexpr std::size_t kRoomForErrors = 64;
constexpr std::size_t kSlotsOfALine = 2;

}  // namespace

/// Uses spdlog's thread pool, but limits the queue here: with a full queue the pool can
/// only block, or discard the oldest entry, which may be an error that a thread waits for.
/// Its flush returns without waiting, so this counts lines in and out, and an error waits
/// for its number.
class LogFile::Writer {
 public:
  Writer(std::filesystem::path folder, const LogLimits& limits, Now now)
      : mCapacity(limits.queueLines),
        mNow(std::move(now)),
        mPool(std::make_shared<spdlog::details::thread_pool>(
            limits.queueLines + kRoomForErrors, 1,
            [] {
              pthread_setname_np(pthread_self(), "velor.log");
              static thread_local const host::SignalStack signalStack;  // until the thread ends
            })),
        mLogger(std::make_shared<spdlog::async_logger>(
            "velor",
            spdlog::sinks_init_list{
                std::make_shared<RollingFileSink>(std::move(folder), limits, mNow),
                std::make_shared<Counter>(*this)},
            mPool, spdlog::async_overflow_policy::block)) {}

  /// Ends the thread after the last line.
  ~Writer() {
    {
      const std::unique_lock lock(mMutex);
      if (mLost > 0) {  // what the thread posts itself could come after its end
        post(mNow(), gapText());
      }
    }
    mPool.reset();
  }

  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  void log(bool isError, std::string_view message) {
    const std::string text = escaped(message);
    std::unique_lock lock(mMutex);
    if (isError) {
      mProgress.wait(lock,
                     [this] { return waiting() + kSlotsOfALine <= mCapacity + kRoomForErrors; });
    } else if (mustDrop()) {
      ++mLost;
      return;
    }
    // Under the lock, so that the lines' times are in their order.
    const auto time = mNow();
    if (mLost > 0) {
      post(time, gapText());
    }
    const std::uint64_t number = post(time, text);
    if (isError) {
      mProgress.wait(lock, [this, number] { return mWritten >= number; });
    }
  }

 private:
  // The logger's second sink: it gets a line after the file has it.
  class Counter final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
   public:
    explicit Counter(Writer& writer) : mWriter(writer) {}

   private:
    void sink_it_(const spdlog::details::log_msg&) override { mWriter.lineWritten(); }
    void flush_() override {}
    Writer& mWriter;
  };

  std::size_t waiting() const noexcept { return static_cast<std::size_t>(mPosted - mWritten); }

  // After the first lost line, all are discarded until half of the queue is free: a few
  // gaps with their counts, instead of every other line of a flood.
  bool mustDrop() noexcept {
    if (waiting() >= mCapacity) {
      mDropping = true;
    } else if (waiting() <= mCapacity / 2) {
      mDropping = false;
    }
    return mDropping;
  }

  std::string gapText() {
    return std::to_string(std::exchange(mLost, 0)) + " lines were lost: the log's queue was full";
  }

  // Never blocks: there is room by the callers' checks.
  std::uint64_t post(std::chrono::system_clock::time_point time, std::string_view text) {
    mLogger->log(time, spdlog::source_loc{}, spdlog::level::info,
                 spdlog::string_view_t(text.data(), text.size()));
    return ++mPosted;
  }

  // On the logging thread.
  void lineWritten() {
    const std::unique_lock lock(mMutex);
    ++mWritten;
    mProgress.notify_all();
    if (waiting() > 0 || mLost == 0) {
      return;
    }
    // The next line may come hours later, or never.
    post(mNow(), gapText());
  }

  const std::size_t mCapacity;
  const Now mNow;
  std::shared_ptr<spdlog::details::thread_pool> mPool;
  const std::shared_ptr<spdlog::async_logger> mLogger;
  std::mutex mMutex;
  std::condition_variable mProgress;
  std::uint64_t mPosted = 0;  // lines, under mMutex as all below
  std::uint64_t mWritten = 0;
  std::uint64_t mLost = 0;
  bool mDropping = false;
};

LogFile::LogFile(std::filesystem::path folder, const LogLimits& limits, Now now)
    : mWriter(std::make_unique<Writer>(std::move(folder), limits, std::move(now))) {}

LogFile::~LogFile() {
  if (mInstalled) {
    host::setLogSink({});
  }
}

void LogFile::install() {
  mInstalled = true;
  host::setLogSink([this](host::LogLevel level, std::string_view line) { log(level, line); });
}

void LogFile::log(host::LogLevel level, std::string_view message) {
  mWriter->log(level == host::kLogError, message);
}

}  // namespace velor::store
