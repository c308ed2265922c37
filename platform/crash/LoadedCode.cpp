// SPDX-License-Identifier: MIT
#include "platform/crash/LoadedCode.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <algorithm>

namespace velor::crash {
namespace {

// The exported symbols of a file. Its hash table alone says how many there are
// (System V ABI, and the GNU hash section).
struct Symbols {
  explicit Symbols(const link_map& map) noexcept {
    const std::uint32_t* hash = nullptr;
    for (const ElfW(Dyn)* entry = map.l_ld; entry->d_tag != DT_NULL; ++entry) {
      // Most are addresses by now; those of read-only tables still count from the start.
      const ElfW(Addr) value = entry->d_un.d_ptr;
      const ElfW(Addr) address = value < map.l_addr ? value + map.l_addr : value;
      if (entry->d_tag == DT_SYMTAB) {
        table = reinterpret_cast<const ElfW(Sym)*>(address);
      } else if (entry->d_tag == DT_STRTAB) {
        names = reinterpret_cast<const char*>(address);
      } else if (entry->d_tag == DT_GNU_HASH) {
        hash = reinterpret_cast<const std::uint32_t*>(address);
      }
    }
    if (table != nullptr && names != nullptr && hash != nullptr) {
      count = countOf(hash);
    }
  }

  static std::uint32_t countOf(const std::uint32_t* hash) noexcept {
    const std::uint32_t bucketCount = hash[0];
    const std::uint32_t first = hash[1];
    const std::uint32_t* const buckets = hash + 4 + hash[2] * (sizeof(ElfW(Addr)) / sizeof *hash);
    const std::uint32_t* const chains = buckets + bucketCount;
    std::uint32_t last = *std::max_element(buckets, chains);
    if (last < first) {
      return 0;
    }
    while ((chains[last - first] & 1U) == 0) {  // the end of the chain
      ++last;
    }
    return last + 1;
  }

  const ElfW(Sym) * table = nullptr;
  const char* names = nullptr;
  std::uint32_t count = 0;
};

}  // namespace

LoadedCode LoadedCode::at(std::uintptr_t address) noexcept {
  LoadedCode code;
  dl_find_object found{};
  // Not dladdr, which takes the loader's lock.
  if (_dl_find_object(reinterpret_cast<void*>(address), &found) != 0) {
    return code;
  }
  const link_map& map = *found.dlfo_link_map;
  code.file = map.l_name;
  code.offset = address - map.l_addr;
  const Symbols symbols(map);
  for (std::uint32_t i = 0; i < symbols.count; ++i) {
    const ElfW(Sym)& symbol = symbols.table[i];
    // The type is in the low four bits, in files of 32 bits as in those of 64.
    if (ELF64_ST_TYPE(symbol.st_info) == STT_FUNC && symbol.st_shndx != SHN_UNDEF &&
        code.offset >= symbol.st_value && code.offset - symbol.st_value < symbol.st_size) {
      code.function = symbols.names + symbol.st_name;
      code.functionOffset = code.offset - symbol.st_value;
      break;
    }
  }
  return code;
}

}  // namespace velor::crash
