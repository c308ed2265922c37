// SPDX-License-Identifier: MIT
#include "platform/host/SignalStack.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

namespace velor::host {
namespace {

// To walk a stack takes a few kilobytes; the registers that the kernel saves take up to
// twelve on some processors.
constexpr long kLeastBytes = 64 * 1024;

}  // namespace

SignalStack::SignalStack() noexcept {
  stack_t present{};
  if (sigaltstack(nullptr, &present) != 0 || (present.ss_flags & SS_DISABLE) == 0) {
    return;
  }
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const auto room = static_cast<std::size_t>(std::max(kLeastBytes, sysconf(_SC_SIGSTKSZ)));
  const std::size_t usable = (room + page - 1) / page * page;
  void* const memory = mmap(nullptr, page + usable, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED) {
    return;  // a crash that uses up the stack stays without a report
  }
  mMemory = memory;
  mBytes = page + usable;
  // It grows downwards: the first page stops it before it reaches other memory.
  mprotect(memory, page, PROT_NONE);
  stack_t stack{};
  stack.ss_sp = static_cast<char*>(memory) + page;
  stack.ss_size = usable;
  sigaltstack(&stack, nullptr);
}

SignalStack::~SignalStack() {
  if (mMemory != nullptr) {
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    sigaltstack(&none, nullptr);
    munmap(mMemory, mBytes);
  }
}

}  // namespace velor::host
