// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/JackPeer.h"

namespace velor::test {

/// A format as the wire and the frame counts know it, from the published tables.
struct WireFormat {
  const char* name;      // on the command line
  int numbersPerSecond;  // frame numbers a second
  bool drop;
  int rateCode;            // on the wire
  double framesPerSecond;  // by which the frames are spaced
};

/// The seven formats.
const std::vector<WireFormat>& wireFormats();
const WireFormat& wireFormat(const std::string& name);

struct Label {
  int hours = 0;
  int minutes = 0;
  int seconds = 0;
  int frames = 0;
  bool operator==(const Label&) const = default;
  std::string text() const;
};

/// The label of the next frame, by walking digits.
Label next(Label label, const WireFormat& format);
/// Two numbers on without regard to what drop-frame counting leaves out, then the
/// next number that exists: how a block names the frame two ahead.
Label twoNumbersOn(Label label, const WireFormat& format);

/// Eight quarter frames.
struct Block {
  Label label;
  int rateCode = 0;
  std::vector<std::uint64_t> frames;  // of the pieces
};

/// What a port was sent.
struct Stream {
  std::vector<Block> blocks;
  std::vector<std::vector<std::uint8_t>> fullFrames;
  std::string fault;  // the first event that is no part of a correct stream
  int faults = 0;
};

/// Reads the events of one port. Pieces that do not run 0 to 7 and messages that
/// are neither quarter nor full frames are faults; an unfinished block at the end
/// is left out.
Stream readStream(const std::vector<JackPeer::Event>& events, int port);

/// How well the pieces of the blocks lie, in samples.
struct Grid {
  double worstOffIdeal = 0;         // a piece against the ideal grid of its block
  double worstOffSpacing = 0;       // the distance of neighbours against the ideal
  std::vector<double> blockErrors;  // each block's start against the first's and the count
};
Grid gridOf(const std::vector<Block>& blocks, const WireFormat& format, double sampleRate,
            double playRate = 1.0);

/// Lets the peer send so many blocks from the frame on, the first one with the
/// label `first`. Gives the frame at which the next block would begin.
std::uint64_t sendStream(JackPeer& peer, int port, const WireFormat& format, Label first,
                         std::uint64_t frame, int blocks);

/// A label of LTC, and the sample in which its frame begins.
struct ReadLabel : Label {
  double place = 0;
};
/// In the order in which libltc reads them.
std::vector<ReadLabel> readLTC(std::vector<float> samples, double samplesPerFrame);

double quantile(std::vector<double> values, double part);

/// The length of a run: the 8 s of the suite, or VELOR_SOAK_SECONDS.
double soakSeconds();

}  // namespace velor::test
