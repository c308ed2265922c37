// SPDX-License-Identifier: MIT
#include "platform/jack/JackLibrary.h"

#include <dlfcn.h>
#include <glob.h>

namespace velor::jack {
namespace {

// PipeWire keeps its library out of the loader's path, below its version.
constexpr const char* kSystemLibrary = "libjack.so.0";
constexpr const char* kPipeWireLibraries = "/usr/lib/*/pipewire-*/jack/libjack.so.0";

}  // namespace

std::vector<std::string> JackLibrary::paths() {
  std::vector<std::string> paths{kSystemLibrary};
  glob_t found{};
  if (glob(kPipeWireLibraries, 0, nullptr, &found) == 0) {
    for (std::size_t i = 0; i < found.gl_pathc; ++i) {
      paths.emplace_back(found.gl_pathv[i]);
    }
  }
  globfree(&found);
  return paths;
}

std::shared_ptr<const JackLibrary> JackLibrary::load(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    return nullptr;
  }
  std::shared_ptr<JackLibrary> library(new JackLibrary(handle));
#define VELOR_JACK_LOAD(name)                                                        \
  library->name = reinterpret_cast<decltype(library->name)>(library->symbol(#name)); \
  if (library->name == nullptr) {                                                    \
    return nullptr;                                                                  \
  }
  VELOR_JACK_FUNCTIONS(VELOR_JACK_LOAD)
#undef VELOR_JACK_LOAD
  return library;
}

std::string JackLibrary::prettyName(jack_uuid_t subject) const {
  char* value = nullptr;
  char* type = nullptr;
  std::string name;
  if (jack_get_property(subject, kPrettyNameKey, &value, &type) == 0 && value != nullptr) {
    name = value;
  }
  jack_free(value);
  jack_free(type);
  return name;
}

void* JackLibrary::symbol(const char* name) const noexcept {
  return dlsym(mHandle, name);
}

// The library keeps threads and exit handlers of its own; unloading it under
// them would end the process.
JackLibrary::~JackLibrary() = default;

}  // namespace velor::jack
