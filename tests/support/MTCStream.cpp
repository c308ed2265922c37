// SPDX-License-Identifier: MIT
#include "tests/support/MTCStream.h"

#include <ltc.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace velor::test {

const std::vector<WireFormat>& wireFormats() {
  static const std::vector<WireFormat> formats = {{"23.98", 24, false, 0, 24 / 1.001},
                                                  {"24", 24, false, 0, 24},
                                                  {"25", 25, false, 1, 25},
                                                  {"29.97", 30, false, 3, 29.97},
                                                  {"29.97df", 30, true, 2, 29.97},
                                                  {"30", 30, false, 3, 30},
                                                  {"30df", 30, true, 2, 30}};
  return formats;
}

const WireFormat& wireFormat(const std::string& name) {
  return *std::find_if(wireFormats().begin(), wireFormats().end(),
                       [&name](const WireFormat& format) { return name == format.name; });
}

std::string Label::text() const {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%02d:%02d:%02d:%02d", hours, minutes, seconds, frames);
  return buffer;
}

namespace {

Label carried(Label label, const WireFormat& format) {
  if (label.frames >= format.numbersPerSecond) {
    label.frames -= format.numbersPerSecond;
    ++label.seconds;
  }
  if (label.seconds == 60) {
    label.seconds = 0;
    ++label.minutes;
  }
  if (label.minutes == 60) {
    label.minutes = 0;
    ++label.hours;
  }
  label.hours %= 24;
  if (format.drop && label.seconds == 0 && label.minutes % 10 != 0 && label.frames < 2) {
    label.frames = 2;
  }
  return label;
}

}  // namespace

Label next(Label label, const WireFormat& format) {
  ++label.frames;
  return carried(label, format);
}

Label twoNumbersOn(Label label, const WireFormat& format) {
  label.frames += 2;
  return carried(label, format);
}

Stream readStream(const std::vector<JackPeer::Event>& events, int port) {
  Stream stream;
  Block block;
  int nibbles[8] = {};
  std::size_t expected = 0;
  const auto fault = [&stream](const std::string& what) {
    if (stream.faults++ == 0) {
      stream.fault = what;
    }
  };
  for (const JackPeer::Event& event : events) {
    if (event.port != port) {
      continue;
    }
    if (event.bytes.size() == 10 && event.bytes[0] == 0xF0) {
      stream.fullFrames.push_back(event.bytes);
      continue;
    }
    // The private message that looks for loops, sent as a destination is switched on.
    if (event.bytes.size() == 19 && event.bytes[0] == 0xF0 && expected == 0) {
      continue;
    }
    if (event.bytes.size() != 2 || event.bytes[0] != 0xF1) {
      fault("a message of " + std::to_string(event.bytes.size()) + " bytes");
      continue;
    }
    const std::size_t piece = event.bytes[1] >> 4;
    if (piece != expected) {
      fault("piece " + std::to_string(piece) + " for " + std::to_string(expected) + " after " +
            std::to_string(stream.blocks.size()) + " blocks");
      block.frames.clear();
      expected = 0;
      if (piece != 0) {
        continue;
      }
    }
    nibbles[piece] = event.bytes[1] & 0x0F;
    block.frames.push_back(event.frame);
    if (++expected < 8) {
      continue;
    }
    block.label = {nibbles[6] | (nibbles[7] & 1) << 4, nibbles[4] | nibbles[5] << 4,
                   nibbles[2] | nibbles[3] << 4, nibbles[0] | nibbles[1] << 4};
    block.rateCode = nibbles[7] >> 1;
    stream.blocks.push_back(block);
    block.frames.clear();
    expected = 0;
  }
  return stream;
}

Grid gridOf(const std::vector<Block>& blocks, const WireFormat& format, double sampleRate,
            double playRate) {
  Grid grid;
  const double spacing = sampleRate / (format.framesPerSecond * 4);
  const double period = 2 * sampleRate / (format.framesPerSecond * playRate);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const auto& frames = blocks[i].frames;
    const auto first = static_cast<double>(frames.front());
    for (std::size_t piece = 1; piece < frames.size(); ++piece) {
      const double ideal = static_cast<double>(piece) * spacing;
      grid.worstOffIdeal = std::max(grid.worstOffIdeal,
                                    std::abs(static_cast<double>(frames[piece]) - first - ideal));
      const double distance = static_cast<double>(frames[piece] - frames[piece - 1]);
      grid.worstOffSpacing = std::max(grid.worstOffSpacing, std::abs(distance - spacing));
    }
    const double start = static_cast<double>(blocks.front().frames.front());
    grid.blockErrors.push_back(first - start - static_cast<double>(i) * period);
  }
  return grid;
}

std::uint64_t sendStream(JackPeer& peer, int port, const WireFormat& format, Label first,
                         std::uint64_t frame, int blocks) {
  const double spacing = peer.sampleRate() / (format.framesPerSecond * 4);
  Label label = first;
  for (int block = 0; block < blocks; ++block) {
    const int fields[4] = {label.frames, label.seconds, label.minutes, label.hours};
    for (int piece = 0; piece < 8; ++piece) {
      int nibble = fields[piece / 2] >> (piece % 2 * 4) & 0x0F;
      nibble |= piece == 7 ? format.rateCode << 1 : 0;
      peer.sendAt(frame + static_cast<std::uint64_t>(std::llround((8 * block + piece) * spacing)),
                  port, {0xF1, static_cast<std::uint8_t>(piece << 4 | nibble)});
    }
    label = next(next(label, format), format);
  }
  return frame + static_cast<std::uint64_t>(std::llround(8 * blocks * spacing));
}

std::vector<ReadLabel> readLTC(std::vector<float> samples, double samplesPerFrame) {
  const std::unique_ptr<LTCDecoder, decltype(&::ltc_decoder_free)> decoder(
      ::ltc_decoder_create(static_cast<int>(samplesPerFrame), 64), &::ltc_decoder_free);
  std::vector<ReadLabel> labels;
  constexpr std::size_t kBuffer = 1024;
  for (std::size_t i = 0; i < samples.size(); i += kBuffer) {
    ::ltc_decoder_write_float(decoder.get(), samples.data() + i,
                              std::min(kBuffer, samples.size() - i), static_cast<ltc_off_t>(i));
    for (LTCFrameExt frame; ::ltc_decoder_read(decoder.get(), &frame) > 0;) {
      const LTCFrame& digits = frame.ltc;
      labels.push_back(
          {{digits.hours_tens * 10 + digits.hours_units, digits.mins_tens * 10 + digits.mins_units,
            digits.secs_tens * 10 + digits.secs_units, digits.frame_tens * 10 + digits.frame_units},
           static_cast<double>(frame.off_start)});
    }
  }
  return labels;
}

double quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  return values.empty()
             ? 0
             : values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

double soakSeconds() {
  const char* soak = std::getenv("VELOR_SOAK_SECONDS");
  return soak != nullptr ? std::atof(soak) : 8.0;
}

}  // namespace velor::test
