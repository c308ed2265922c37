// SPDX-License-Identifier: MIT
// What a list of 10,000 markers costs the main queue, an operation.
#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include "Velor/app/VLMarkerController.h"
#include "kvtimecode/SMPTETime.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

constexpr std::size_t kMarkers = 10'000;
constexpr std::int32_t kFramesOfADay = 24 * 60 * 60 * 25;

class List final : public VLMarkerList {
 public:
  List() {
    std::mt19937 random(1);
    std::uniform_int_distribution<std::int32_t> frames(0, kFramesOfADay - 1);
    for (std::size_t i = 0; i < kMarkers; ++i) {
      mMarkers.push_back(marker(frames(random), "Marker " + std::to_string(i)));
    }
    controller.contentChanged();
  }

  static std::shared_ptr<VLMarker> marker(std::int32_t frame, std::string name) {
    return VLMarker::initWithTime(
        KVSMPTETime::smpteTimeWithTime(ltc_smptetime_from_frame_number(frame, kSMPTETimeType25)),
        std::move(name));
  }

  const Markers& markers() const override { return mMarkers; }
  void insertMarkers(const Markers& markers, const std::set<std::size_t>& indexes) override {
    auto next = markers.begin();
    for (const std::size_t index : indexes) {
      mMarkers.insert(mMarkers.begin() + static_cast<std::ptrdiff_t>(index), *next++);
    }
    controller.contentChanged();
  }
  void removeMarkersAtIndexes(const std::set<std::size_t>& indexes) override {
    for (auto index = indexes.rbegin(); index != indexes.rend(); ++index) {
      mMarkers.erase(mMarkers.begin() + static_cast<std::ptrdiff_t>(*index));
    }
    controller.contentChanged();
  }

  VLMarkerController controller{*this};

 private:
  Markers mMarkers;
};

void addObjectAndRemove(benchmark::State& state) {
  List list;
  for ([[maybe_unused]] const auto round : state) {
    list.controller.addObject(List::marker(kFramesOfADay / 2, "new"));
    state.PauseTiming();
    list.controller.remove();
    state.ResumeTiming();
  }
}
BENCHMARK(addObjectAndRemove)->Unit(benchmark::kMillisecond);

void rearrangeObjects(benchmark::State& state) {
  List list;
  for ([[maybe_unused]] const auto round : state) {
    list.controller.rearrangeObjects();
  }
}
BENCHMARK(rearrangeObjects)->Unit(benchmark::kMillisecond);

// All of them and one of them in turn.
void setSelectedObjects(benchmark::State& state) {
  List list;
  for ([[maybe_unused]] const auto round : state) {
    list.controller.setSelectedObjects(list.markers());
    list.controller.setSelectedObjects({list.markers().front()});
  }
}
BENCHMARK(setSelectedObjects)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace velor

BENCHMARK_MAIN();
