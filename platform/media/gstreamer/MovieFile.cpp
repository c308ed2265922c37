// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/MovieFile.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <span>
#include <string_view>

namespace velor::media {
namespace {

constexpr std::uint64_t kHeader = 8;       // length and name of a box
constexpr std::uint64_t kLongHeader = 16;  // with a length of 64 bits

constexpr int kMostBoxes = 1000;  // that are looked at

constexpr std::array<std::string_view, 7> kFirstBoxes{"ftyp", "moov", "mdat", "wide",
                                                      "free", "skip", "pnot"};

std::uint64_t bigEndian(std::span<const unsigned char> bytes) {
  std::uint64_t value = 0;
  for (const unsigned char byte : bytes) {
    value = value << 8 | byte;
  }
  return value;
}

}  // namespace

std::string MovieFile::problem(const std::filesystem::path& path) {
  std::error_code error;
  const std::uint64_t size = std::filesystem::file_size(path, error);
  std::ifstream file(path, std::ios::binary);
  if (error || !file) {
    return {};
  }
  std::uint64_t at = 0;
  for (int box = 0; box < kMostBoxes && at < size; ++box) {
    std::array<unsigned char, kLongHeader> header{};
    file.clear();
    file.seekg(static_cast<std::streamoff>(at));
    file.read(reinterpret_cast<char*>(header.data()), header.size());
    const std::string name(header.begin() + 4, header.begin() + kHeader);
    if (at == 0 && std::ranges::find(kFirstBoxes, name) == kFirstBoxes.end()) {
      return {};
    }
    std::uint64_t length = bigEndian(std::span(header).first<4>());
    const bool isLong = length == 1;
    if (isLong) {
      length = bigEndian(std::span(header).last<8>());
    } else if (length == 0) {
      length = size - at;  // to the end of the file
    }
    const bool isWhole = length >= (isLong ? kLongHeader : kHeader) && length <= size - at;
    if (name == "moov" && isWhole) {
      return {};
    }
    if (!isWhole) {
      break;
    }
    at += length;
  }
  return "the file is cut off: its index is missing or incomplete";
}

}  // namespace velor::media
