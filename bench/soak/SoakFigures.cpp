// SPDX-License-Identifier: MIT
#include "bench/soak/SoakFigures.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "tests/support/LTCSignalReader.h"

namespace velor::test {
namespace {

// A device that is new is opened twice, as its ports come one by one, and libltc may lose
// frames until it has found its way into a recording: s of LTC that are not judged.
constexpr double kOpening = 1;
constexpr int kLongestEvenPeriod = 512;  // frames
constexpr double kClickSpread = 10;      // ms

const WireFormat& format() {
  return wireFormat("25");
}

void count(SoakFigures::Sequence& sequence, const std::string& fault) {
  if (sequence.faults++ == 0) {
    sequence.first = fault;
  }
}

// From the first whole block after the frame on, without the private message that looks for
// loops, which may come between the pieces of a block.
Stream streamOf(const std::vector<JackPeer::Event>& all, int port, SoakFigures::Piece piece) {
  std::vector<JackPeer::Event> events;
  for (const JackPeer::Event& event : all) {
    const bool isBegin = event.bytes.size() == 2 && event.bytes[1] >> 4 == 0;
    if (event.port == port && event.frame >= piece.begin && event.frame < piece.end &&
        event.bytes.size() != 19 && (isBegin || !events.empty())) {
      events.push_back(event);
    }
  }
  return readStream(events, port);
}

}  // namespace

// A server that leaves out cycles, and a machine that stands still, disturb what clients
// receive shortly before and after. The program cannot prevent that, so it is not judged.
void SoakFigures::judge(const Heard& heard) {
  const auto rate = static_cast<std::uint64_t>(heard.recorder->sampleRate());
  Piece piece{heard.settled, 0};
  auto ends = heard.recorder->gaps();
  ends.insert(ends.end(), heard.stalls.begin(), heard.stalls.end());
  std::sort(ends.begin(), ends.end());
  ends.push_back(heard.recorder->frameNow() + rate / 2);
  for (const std::uint64_t gap : ends) {
    if (gap < piece.begin) {
      piece.begin = std::max(piece.begin, gap + 2 * rate);
      continue;
    }
    piece.end = gap - rate / 2;
    if (piece.end > piece.begin + 2 * rate) {
      judgePiece(heard, piece);
      judgedSeconds += static_cast<double>(piece.end - piece.begin) / static_cast<double>(rate);
    }
    gaps += gap == ends.back() ? 0 : 1;
    piece.begin = gap + 2 * rate;
  }
}

void SoakFigures::judgePiece(const Heard& heard, Piece piece) {
  const auto events = heard.recorder->recorded();
  std::map<std::string, Stream> streams;
  for (std::size_t i = 0; i < heard.names.size(); ++i) {
    const Stream stream = streamOf(events, static_cast<int>(i), piece);
    judgeBlocks(heard.names[i], stream);
    streams[heard.names[i]] = stream;
  }
  const std::vector<Block>& clock = streams[heard.names.front()].blocks;
  if (clock.empty()) {
    return;
  }
  const double microsecondsPerSample = 1e6 / heard.recorder->sampleRate();
  const Grid grid = gridOf(clock, format(), heard.recorder->sampleRate());
  double worstStep = 0;  // samples
  for (std::size_t i = 1; i < grid.blockErrors.size(); ++i) {
    const double step = std::abs(grid.blockErrors[i] - grid.blockErrors[i - 1]);
    worstStep = std::max(worstStep, step);
    steps.push_back(step * microsecondsPerSample);
  }
  // A block begins when the clock's timer woke, and what follows it does so a block later:
  // how far blocks are off each other's grid is no fault of the follower or the LTC.
  const double jitter = 1.25 * worstStep;
  judgeRelay(*heard.recorder, clock, streams[heard.follower].blocks, jitter);
  const auto all = heard.recorder->recordedAudio();
  const std::uint64_t start = heard.recorder->audioStart();
  const auto placeOf = [&](std::uint64_t frame) {
    return all.begin() + static_cast<std::ptrdiff_t>(
                             std::clamp<std::uint64_t>(frame, start, start + all.size()) - start);
  };
  const auto places =
      judgeLTC(heard.ltc, std::max(start, piece.begin), {placeOf(piece.begin), placeOf(piece.end)},
               heard.recorder->sampleRate());
  judgePhase(clock, places, heard.latency, jitter);
  judgeClicks(*heard.ear, places);
}

void SoakFigures::judgeVisit(const JackPeer& visitor, double seconds, bool stalled) {
  if (stalled || !visitor.gaps().empty()) {
    ++visitsLeftOut;
    return;
  }
  const auto samples = visitor.recordedAudio();
  const auto isSignal = [](float sample) { return std::abs(sample) > 1e-4F; };
  const auto first = std::find_if(samples.begin(), samples.end(), isSignal);
  const double delay = static_cast<double>(first - samples.begin()) / visitor.sampleRate();
  visitDelays.push_back(delay);
  judgeBlocks("MTC to a port that comes and goes",
              streamOf(visitor.recorded(), 0, {0, UINT64_MAX}));
  const std::string name = "LTC to a device that comes and goes";
  const auto places = judgeLTC(name, visitor.audioStart(), samples, visitor.sampleRate(),
                               static_cast<std::size_t>((delay + kOpening) * visitor.sampleRate()));
  if (static_cast<double>(places.size()) <
      (seconds - delay - 1 - kOpening) * format().framesPerSecond) {
    count(sequences[name], std::to_string(places.size()) + " frames in a visit");
  }
}

void SoakFigures::judgeBlocks(const std::string& name, const Stream& stream) {
  Sequence& sequence = sequences[name];
  sequence.count += stream.blocks.size();
  if (stream.faults > 0) {
    count(sequence, stream.fault);
    sequence.faults += stream.faults - 1;
  }
  if (stream.blocks.empty()) {
    count(sequence, "nothing came");
  }
  for (std::size_t i = 1; i < stream.blocks.size(); ++i) {
    const Label expected = next(next(stream.blocks[i - 1].label, format()), format());
    if (stream.blocks[i].label != expected) {
      count(sequence, stream.blocks[i].label.text() + " for " + expected.text());
    }
  }
}

std::map<std::string, double> SoakFigures::judgeLTC(const std::string& name, std::uint64_t first,
                                                    const std::vector<float>& samples,
                                                    int sampleRate, std::size_t opening) {
  Sequence& sequence = sequences[name];
  const double samplesPerFrame = sampleRate / format().framesPerSecond;
  std::vector<double> starts;
  LTCSignalReader reader(
      samplesPerFrame, [&starts](const PublishedBits&, double start) { starts.push_back(start); });
  const std::span all(samples);
  opening = std::min(opening, all.size());
  reader.read(static_cast<double>(first), all.first(opening));
  reader.torn = reader.silences = 0;
  reader.read(static_cast<double>(first + opening), all.subspan(opening));
  const std::vector<ReadLabel> labels = readLTC(samples, samplesPerFrame);
  sequence.count += labels.size();
  if (labels.empty()) {
    count(sequence, "nothing was read");
  }
  const auto isSure = [&](const ReadLabel& label) { return label.place > kOpening * sampleRate; };
  for (std::size_t i = 1; i < labels.size(); ++i) {
    const Label expected = next(labels[i - 1], format());
    if (isSure(labels[i - 1]) && labels[i] != expected) {
      count(sequence, labels[i].text() + " for " + expected.text());
    }
  }
  // The recording begins within a frame.
  if (reader.torn > 1 || reader.silences > 0) {
    count(sequence, std::to_string(reader.torn) + " torn frames and " +
                        std::to_string(reader.silences) + " silences");
  }
  // libltc may need a frame more to find the first; the last is the same.
  std::map<std::string, double> places;
  const auto extra =
      static_cast<std::ptrdiff_t>(starts.size()) - static_cast<std::ptrdiff_t>(labels.size());
  for (std::size_t i = 0; i < labels.size() && std::abs(extra) <= 2; ++i) {
    if (const auto at = static_cast<std::ptrdiff_t>(i) + extra; at >= 0 && isSure(labels[i])) {
      places[labels[i].text()] = starts[static_cast<std::size_t>(at)];
    }
  }
  return places;
}

void SoakFigures::judgePhase(const std::vector<Block>& blocks,
                             const std::map<std::string, double>& places, int latency,
                             double jitter) {
  for (const Block& block : blocks) {
    if (const auto place = places.find(block.label.text()); place != places.end()) {
      phase.push_back(std::abs(place->second + latency - static_cast<double>(block.frames[0])));
      unexplainedPhase = std::max(unexplainedPhase, phase.back() - jitter);
    }
  }
}

void SoakFigures::judgeRelay(const JackPeer& recorder, const std::vector<Block>& sent,
                             const std::vector<Block>& relayedBlocks, double jitter) {
  constexpr std::uint64_t kMemory = 24000;  // samples from receipt to relay, several blocks
  std::map<std::string, const Block*> own;
  for (const Block& block : sent) {
    own[block.label.text()] = &block;
  }
  for (const Block& block : relayedBlocks) {
    const auto found = own.find(block.label.text());
    if (found == own.end()) {
      continue;
    }
    const auto& frames = found->second->frames;
    double worst = 0;
    for (std::size_t piece = 0; piece < 8; ++piece) {
      worst = std::max(worst, std::abs(static_cast<double>(block.frames[piece]) -
                                       static_cast<double>(frames[piece])));
    }
    relayed.push_back(worst);
    if (worst - jitter > unexplainedRelay) {
      const double wander = recorder.clockWander(frames.front() - kMemory, frames.back());
      unexplainedRelay = std::max(unexplainedRelay, worst - jitter - wander);
    }
  }
}

void SoakFigures::judgeClicks(const JackPeer& ear, const std::map<std::string, double>& places) {
  constexpr float kLoud = 0.3F;
  const auto samples = ear.recordedAudio();
  std::vector<double> seconds;  // places of LTC at whole seconds
  for (const auto& [label, place] : places) {
    if (label.ends_with(":00")) {
      seconds.push_back(place);
    }
  }
  std::sort(seconds.begin(), seconds.end());
  for (std::size_t i = 1; i < samples.size(); ++i) {
    if (std::abs(samples[i]) < kLoud || std::abs(samples[i - 1]) >= kLoud) {
      continue;
    }
    const double place = static_cast<double>(ear.audioStart() + i);
    const auto after = std::lower_bound(seconds.begin(), seconds.end(), place);
    if (after != seconds.end() && after != seconds.begin()) {
      const double late = place - *std::prev(after);
      const double early = *after - place;
      if (std::min(late, early) < ear.sampleRate() / 2.0) {
        clicks.push_back(late < early ? late : -early);
      }
    }
    i += static_cast<std::size_t>(ear.sampleRate()) / 10;  // the rest of the click
  }
}

void SoakFigures::tell(SoakTable& table, double seconds, int period) const {
  for (const auto& [name, sequence] : sequences) {
    table.row("sequence: " + name,
              SoakTable::text("%zu, %d faults", sequence.count, sequence.faults) +
                  (sequence.faults > 0 ? " (" + sequence.first + ")" : ""),
              "no fault", sequence.faults == 0 && sequence.count > 0);
  }
  table.row(
      "judged, but for 2.5 s around each cycle that the server left out and each moment at "
      "which the machine stood still for 2 ms",
      SoakTable::text("%.0f of %.0f s, %d times", judgedSeconds, seconds, gaps), "70 %",
      judgedSeconds > 0.7 * seconds);
  const auto worst = [](const std::vector<double>& values) { return quantile(values, 1); };
  table.row("jitter: a block of the clock off the one before",
            SoakTable::text("median %.0f us, 99 %% %.0f us, worst %.0f us", quantile(steps, 0.5),
                            quantile(steps, 0.99), worst(steps)),
            "median 500 us", !steps.empty() && quantile(steps, 0.5) <= 500);
  table.row(
      "phase: LTC off the MTC that names its frame",
      SoakTable::text("median %.2f samples, worst %.2f, of which %.2f beyond the clock's jitter",
                      quantile(phase, 0.5), worst(phase), unexplainedPhase),
      "median 2, beyond the jitter 2",
      !phase.empty() && quantile(phase, 0.5) <= 2 && unexplainedPhase <= 2);
  // At a longer period the first pieces of a block go out together.
  const int relayLimit = period > kLongestEvenPeriod ? period : 2;
  table.row(
      "phase: the follower's pieces off the clock's",
      SoakTable::text("median %.0f samples, worst %.0f, of which %.0f beyond the clock's jitter "
                      "and the server's",
                      quantile(relayed, 0.5), worst(relayed), unexplainedRelay),
      SoakTable::text("beyond both %d", relayLimit),
      !relayed.empty() && unexplainedRelay <= relayLimit);
  const double spread = (worst(clicks) - quantile(clicks, 0)) / 48;
  table.row("phase: clicks of the clip behind the LTC of their time",
            SoakTable::text("%zu clicks, median %.1f ms, %.1f ms apart", clicks.size(),
                            quantile(clicks, 0.5) / 48, spread),
            SoakTable::text("%.0f ms apart", kClickSpread),
            !clicks.empty() && spread < kClickSpread);
  table.row("LTC after a device's return",
            SoakTable::text("%zu of %zu times, median %.1f s, worst %.1f s", visitDelays.size(),
                            visitDelays.size() + static_cast<std::size_t>(visitsLeftOut),
                            quantile(visitDelays, 0.5), worst(visitDelays)),
            "5 s", !visitDelays.empty() && worst(visitDelays) < 5);
}

}  // namespace velor::test
