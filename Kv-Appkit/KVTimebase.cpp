// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVTimebase.h"

#include "Kv-Appkit/KVAssert.h"

namespace velor {

const host::MachTimebaseInfo& KVTimebase() {
  static const host::MachTimebaseInfo timebase = [] {
    host::MachTimebaseInfo info;
    const int retval = host::current().mach_timebase_info(info);
    KV_ASSERT(0 == retval && "mach_timebase_info");
    return info;
  }();
  return timebase;
}

}  // namespace velor
