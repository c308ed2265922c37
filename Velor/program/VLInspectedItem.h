// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Velor/devices/VLReaderDevice.h"
#include "Velor/devices/VLTimecodeDestinationDevice.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/store/KeyedCoding.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {

/// The problems that an inspection finds.
class VLInspectFindings {
 public:
  /// Takes the coder's error as a problem, so that it reads on. False for an error.
  bool check(store::KeyedUnarchiver& coder);
  void add(const std::string& path, const std::string& problem);
  void takeOver(const VLInspectFindings& inner);
  /// When all known keys have been asked for.
  void addUnknown(const store::KeyedUnarchiver& coder);

  std::vector<std::string>& problems() noexcept { return mProblems; }
  const std::vector<std::string>& unknown() const noexcept { return mUnknown; }

 private:
  std::vector<std::string> mProblems;
  std::vector<std::string> mUnknown;  // paths
};

/// An object of a document by its keys, of whatever class: nothing is made of it.
class VLInspectedItem : public store::KeyedCoding {
 public:
  using Value =
      std::variant<std::monostate, bool, std::int64_t, double, std::string,
                   std::vector<std::uint8_t>, SMPTETime, std::shared_ptr<VLInspectedItem>>;

  /// The classes that it stands for.
  static std::span<const store::KeyedClass> classes();

  /// The value under a key of its class, or `other` when there is none that can be read.
  template <class Wanted>
  Wanted value(std::string_view key, Wanted other = {}) const {
    const auto cell = mCells.find(key);
    const auto* found = cell != mCells.end() ? std::get_if<Wanted>(&cell->second.value) : nullptr;
    return found != nullptr ? *found : other;
  }
  std::shared_ptr<VLInspectedItem> item(std::string_view key) const {
    return value<std::shared_ptr<VLInspectedItem>>(key);
  }
  std::string path(std::string_view key) const { return mCells.at(key).path; }

  /// What it is and how it is set, in one line.
  std::string text() const;

  const VLInspectFindings& findings() const noexcept { return mFindings; }

  std::string_view archiveClassName() const override { return mClassName; }
  void encodeWithCoder(store::KeyedArchiver& /*coder*/) const override {}

 protected:
  /// Reads the keys of the class.
  void read(store::KeyedUnarchiver& coder, std::string_view className);

 private:
  struct Cell {
    Value value;
    std::string path;
    bool isRead = false;  // false: the value is of another kind
  };

  std::string generatorText() const;
  std::string readerText() const;
  std::string mediaWindowText() const;

  std::string_view mClassName;
  std::map<std::string_view, Cell> mCells;
  VLInspectFindings mFindings;
};

/// An item where an object of `Class` or of one derived from it may stand.
template <class Class, class Base = VLInspectedItem>
class VLInspected : public Base {
 public:
  static constexpr std::string_view kClassName = Class::kClassName;

  static std::shared_ptr<VLInspected> initWithCoder(store::KeyedUnarchiver& coder) {
    auto item = std::make_shared<VLInspected>();
    item->read(coder, kClassName);
    return item;
  }
};

// As the classes of devices derive from one another.
class VLInspectedDevice : public VLInspectedItem {
 public:
  static constexpr std::string_view kClassName = VLDevice::kClassName;
};
using VLInspectedEndpointDevice = VLInspected<VLMIDIEndpointDevice, VLInspectedDevice>;
using VLInspectedReaderDevice = VLInspected<VLReaderDevice, VLInspectedEndpointDevice>;
using VLInspectedDestination = VLInspected<VLTimecodeDestinationDevice, VLInspectedDevice>;

}  // namespace velor
