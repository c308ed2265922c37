// SPDX-License-Identifier: MIT
#include "Velor/program/VLAnalyse.h"

#include <cstdio>
#include <filesystem>
#include <span>
#include <vector>

#include "Velor/ltc/VLLTCAnalysis.h"
#include "Velor/program/VLAnalyseOutput.h"
#include "Velor/program/VLAnalysisText.h"
#include "Velor/program/VLProgressBar.h"
#include "platform/audio/file/SoundFileReader.h"

namespace velor {
namespace {

constexpr int kUsageStatus = 2;
constexpr std::size_t kSamplesPerBlock = 1 << 16;  // of all channels

// Reads the file up to its end or to the damage, which it gives; what stands before the
// damage is analysed.
std::optional<Error> readInto(VLLTCAnalysis& analysis, audio::SoundFileReader& reader,
                              int channel) {
  const auto channels = static_cast<std::size_t>(reader.channels());
  std::vector<float> room(kSamplesPerBlock / channels * channels);
  std::vector<float> samples;
  VLProgressBar bar("analyse");
  std::int64_t done = 0;
  for (;;) {
    auto part = reader.read(room);
    samples.resize(part.frames);
    for (std::size_t i = 0; i < part.frames; ++i) {
      samples[i] = room[i * channels + static_cast<std::size_t>(channel) - 1];
    }
    analysis.process(samples);
    if (part.frames == 0 || part.error) {
      analysis.finish();
      return std::move(part.error);
    }
    done += static_cast<std::int64_t>(part.frames);
    if (reader.frames()) {
      bar.show(static_cast<double>(done) / static_cast<double>(*reader.frames()));
    }
  }
}

}  // namespace

int VLAnalyseRun(const VLAnalyseOptions& options) {
  const auto opened = audio::SoundFileReader::open(*options.file);
  if (!opened) {
    return VLAnalyseOutput::fail(opened.error().text, 1);
  }
  audio::SoundFileReader& reader = **opened;
  if (options.channel > reader.channels()) {
    return VLAnalyseOutput::fail("--channel: " + *options.file + " has no channel " +
                                     std::to_string(options.channel) + " (1 to " +
                                     std::to_string(reader.channels()) + ")",
                                 kUsageStatus);
  }
  VLLTCAnalysis analysis(reader.sampleRate());
  const auto error = readInto(analysis, reader, options.channel);
  const VLLTCReport report = analysis.report();
  const int status = VLAnalyseOutput::end<VLAnalysisText>(
      report, options, std::filesystem::path(*options.file).filename());
  if (error) {
    return VLAnalyseOutput::fail(error->text, 1);
  }
  if (status == 0 && report.frames == 0) {
    return VLAnalyseOutput::fail("no LTC on channel " + std::to_string(options.channel), 1);
  }
  return status;
}

}  // namespace velor
