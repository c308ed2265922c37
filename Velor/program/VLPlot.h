// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velor {

/// Curves over time below each other, and rows of marks, for people.
struct VLPlot {
  struct Point {
    double begin = 0;  ///< s
    double end = 0;
    double low = 0;
    double mean = 0;
    double high = 0;
  };
  /// Points are in the order of time; where one does not begin at the end of the one before,
  /// the curve has a gap.
  struct Series {
    std::string name;  ///< empty for none
    std::vector<Point> points;
  };
  struct Panel {
    std::string title;
    std::string unit;
    double leastSpan = 0;  ///< of the axis
    bool isFromZero = false;
    std::vector<Series> series;  ///< at most two
  };
  struct Mark {
    double begin = 0;
    double end = 0;
    std::string text;  ///< shows under the pointer
  };
  struct Row {
    std::string name;
    std::vector<Mark> marks;
  };

  std::string title;
  std::string verdict;
  double duration = 0;  // s
  std::vector<Panel> panels;
  std::vector<Row> rows;

  /// As a picture that stands alone, for light and dark surroundings.
  std::string svg() const;
};

}  // namespace velor
