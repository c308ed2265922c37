// SPDX-License-Identifier: MIT
// Ends a test binary that allocates or frees inside a real-time scope.
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "platform/host/Realtime.h"

#if defined(__has_feature)
#define VELOR_HAS_FEATURE(x) __has_feature(x)
#else
#define VELOR_HAS_FEATURE(x) 0
#endif

namespace {

void check(const char* what) noexcept {
  int& depth = velor::host::realtimeDepth();
  if (depth != 0) {
    depth = 0;
    static_cast<void>(write(STDERR_FILENO, what, std::strlen(what)));
    std::abort();
  }
}

void checkAllocation() noexcept {
  check("allocation inside a real-time scope\n");
}
void checkFree() noexcept {
  check("free inside a real-time scope\n");
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || \
    VELOR_HAS_FEATURE(address_sanitizer) || VELOR_HAS_FEATURE(thread_sanitizer)

// Declared here: GCC 12 has the function and not its header.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*,
                                                                          std::size_t),
                                                         void (*onFree)(const volatile void*));

namespace {
[[maybe_unused]] const int kInstalled = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { checkAllocation(); },
    [](const volatile void* pointer) {
      if (pointer != nullptr) {
        checkFree();
      }
    });
}

#else

// The C library's own entries, under the names that it keeps for this.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);

void* malloc(std::size_t size) {
  checkAllocation();
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  checkAllocation();
  return __libc_calloc(count, size);
}
void* realloc(void* pointer, std::size_t size) {
  checkAllocation();
  return __libc_realloc(pointer, size);
}
void* memalign(std::size_t alignment, std::size_t size) {
  checkAllocation();
  return __libc_memalign(alignment, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  checkAllocation();
  return __libc_memalign(alignment, size);
}
int posix_memalign(void** result, std::size_t alignment, std::size_t size) {
  checkAllocation();
  *result = __libc_memalign(alignment, size);
  return *result == nullptr ? ENOMEM : 0;
}
void free(void* pointer) {
  if (pointer != nullptr) {
    checkFree();
  }
  __libc_free(pointer);
}
}

#endif
