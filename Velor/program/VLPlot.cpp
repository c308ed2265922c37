// SPDX-License-Identifier: MIT
#include "Velor/program/VLPlot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>

namespace velor {
namespace {

// Lengths are in pixels.
constexpr double kWidth = 960;
constexpr double kLeft = 84;
constexpr double kRight = 24;
constexpr double kTop = 84;
constexpr double kPanel = 130;
constexpr double kBetween = 44;
constexpr double kRow = 24;
constexpr double kBottom = 52;
constexpr double kCurve = kWidth - kLeft - kRight;
constexpr std::size_t kColumns = 800;
constexpr int kTicks = 5;
constexpr double kTimeTicks = 10;
constexpr double kLeastMark = 3;
constexpr double kKey = 66;  // name of a curve

constexpr const char* kStyle =
    "text{font:13px system-ui,sans-serif;fill:#24292f}"
    ".title{font-size:18px;font-weight:600}.head{font-weight:600}.dim{fill:#57606a}"
    ".back{fill:#fff}.grid{stroke:#d8dee4;stroke-width:1}.frame{fill:none;stroke:#8c959f}"
    ".line0{fill:none;stroke:#0b62c4;stroke-width:1.6}.band0{fill:#0b62c4;opacity:.22}"
    ".line1{fill:none;stroke:#b35900;stroke-width:1.6}.band1{fill:#b35900;opacity:.22}"
    ".key0{fill:#0b62c4}.key1{fill:#b35900}.mark{fill:#c4232e}.lane{fill:#f0f2f4}"
    "@media(prefers-color-scheme:dark){text{fill:#e6edf3}.dim{fill:#9aa4af}.back{fill:#0d1117}"
    ".grid{stroke:#2b323b}.frame{stroke:#6e7681}.line0{stroke:#6cb0ff}.band0{fill:#6cb0ff}"
    ".line1{stroke:#f0a860}.band1{fill:#f0a860}.key0{fill:#6cb0ff}.key1{fill:#f0a860}"
    ".mark{fill:#ff7b72}.lane{fill:#1a2029}}";

template <class... Values>
std::string line(const char* format, Values... values) {
  std::array<char, 256> text{};
  std::snprintf(text.data(), text.size(), format, values...);
  return text.data();
}

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      default:
        result += static_cast<unsigned char>(c) < ' ' ? '?' : c;
    }
  }
  return result;
}

std::string words(double x, double y, const char* kind, const char* anchor,
                  const std::string& text) {
  return line("<text x=\"%.1f\" y=\"%.1f\" class=\"%s\" text-anchor=\"%s\">", x, y, kind, anchor) +
         escaped(text) + "</text>\n";
}

// 1, 2 or 5 times a power of ten.
double stepFor(double span, double count) {
  const double rough = span / count;
  const double power = std::pow(10, std::floor(std::log10(rough)));
  for (const double each : {1.0, 2.0, 5.0}) {
    if (rough <= each * power) {
      return each * power;
    }
  }
  return 10 * power;
}

double timeStepFor(double span) {
  for (const double step :
       {10.0, 15.0, 30.0, 60.0, 120.0, 300.0, 600.0, 900.0, 1800.0, 3600.0, 7200.0, 14400.0}) {
    if (span / kTimeTicks <= step) {
      return span / kTimeTicks < 5 ? stepFor(span, kTimeTicks) : step;
    }
  }
  return std::ceil(span / kTimeTicks / 86400) * 86400;
}

// Seconds, up to three minutes; then minutes and seconds, then hours and minutes.
std::string timeText(double time, double span) {
  const auto seconds = static_cast<long>(std::lround(time));
  if (span <= 180) {
    return line("%g", std::round(time * 1e6) / 1e6);
  }
  return span <= 7200 ? line("%ld:%02ld", seconds / 60, seconds % 60)
                      : line("%ld:%02ld", seconds / 3600, seconds / 60 % 60);
}

const char* timeUnit(double span) {
  return span <= 180 ? "time, s" : span <= 7200 ? "time, min:s" : "time, h:min";
}

// As many points as there are columns at most, each with the extremes of what it holds.
std::vector<VLPlot::Point> reduced(const std::vector<VLPlot::Point>& points) {
  const std::size_t each = (points.size() + kColumns - 1) / kColumns;
  std::vector<VLPlot::Point> result;
  for (std::size_t i = 0; i < points.size(); i += each) {
    VLPlot::Point all = points[i];
    double sum = 0;
    const std::size_t end = std::min(i + each, points.size());
    for (std::size_t k = i; k < end; ++k) {
      all.low = std::min(all.low, points[k].low);
      all.high = std::max(all.high, points[k].high);
      all.end = points[k].end;
      sum += points[k].mean;
    }
    all.mean = sum / static_cast<double>(end - i);
    result.push_back(all);
  }
  return result;
}

class Picture {
 public:
  explicit Picture(const VLPlot& plot) : mPlot(plot), mSpan(std::max(plot.duration, 1e-3)) {}

  std::string make() {
    double y = kTop;
    for (const VLPlot::Panel& panel : mPlot.panels) {
      draw(panel, y);
      y += kPanel + kBetween;
    }
    y -= mPlot.rows.empty() ? 0 : kBetween / 2;
    for (const VLPlot::Row& row : mPlot.rows) {
      draw(row, y);
      y += kRow;
    }
    y += mPlot.rows.empty() ? -kBetween : kRow / 4;
    drawTimes(y);
    const double height = y + kBottom;
    return line(
               "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %.0f %.0f\" "
               "width=\"%.0f\" height=\"%.0f\">\n<style>",
               kWidth, height, kWidth, height) +
           kStyle + "</style>\n" +
           line("<rect class=\"back\" width=\"%.0f\" height=\"%.0f\"/>\n", kWidth, height) +
           words(kLeft, 30, "title", "start", mPlot.title) +
           words(kLeft, 52, "dim", "start", mPlot.verdict) + mText + "</svg>\n";
  }

 private:
  double xOf(double time) const { return kLeft + std::clamp(time / mSpan, 0.0, 1.0) * kCurve; }

  void draw(const VLPlot::Panel& panel, double top) {
    double low = std::numeric_limits<double>::max();
    double high = std::numeric_limits<double>::lowest();
    for (const VLPlot::Series& series : panel.series) {
      for (const VLPlot::Point& point : series.points) {
        low = std::min(low, point.low);
        high = std::max(high, point.high);
      }
    }
    mText += words(kLeft, top - 8, "head", "start", panel.title + ", " + panel.unit);
    if (low > high) {
      low = high = 0;
    }
    low = panel.isFromZero ? 0 : low;
    if (high - low < panel.leastSpan) {
      const double middle = (low + high) / 2;
      low = panel.isFromZero ? 0 : middle - panel.leastSpan / 2;
      high = panel.isFromZero ? panel.leastSpan : middle + panel.leastSpan / 2;
    }
    const double step = stepFor(high - low, kTicks);
    low = std::floor(low / step + 1e-9) * step;
    high = std::ceil(high / step - 1e-9) * step;
    const auto yOf = [=](double value) { return top + (high - value) / (high - low) * kPanel; };
    const long steps = std::lround((high - low) / step);
    for (long i = 0; i <= steps; ++i) {
      const double value = low + static_cast<double>(i) * step;
      mText += line("<line class=\"grid\" x1=\"%.1f\" x2=\"%.1f\" y1=\"%.1f\" y2=\"%.1f\"/>\n",
                    kLeft, kWidth - kRight, yOf(value), yOf(value));
      mText += words(kLeft - 8, yOf(value) + 4, "dim", "end",
                     line("%.10g", std::round(value / step) * step + 0.0));
    }
    drawTimeGrid(top, kPanel);
    double key = kWidth - kRight;
    for (std::size_t i = panel.series.size(); i-- > 0;) {
      const VLPlot::Series& series = panel.series[i];
      drawSeries(series, i, yOf);
      if (!series.name.empty()) {
        key -= kKey;
        mText += line("<rect class=\"key%zu\" x=\"%.1f\" y=\"%.1f\" width=\"14\" height=\"4\"/>\n",
                      i, key, top - 14);
        mText += words(key + 20, top - 8, "dim", "start", series.name);
      }
    }
    mText += line("<rect class=\"frame\" x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\"/>\n",
                  kLeft, top, kCurve, kPanel);
  }

  template <class Y>
  void drawSeries(const VLPlot::Series& series, std::size_t number, const Y& yOf) {
    const std::vector<VLPlot::Point> points = reduced(series.points);
    for (std::size_t i = 0; i < points.size();) {
      std::size_t end = i + 1;
      while (end < points.size() && points[end].begin - points[end - 1].end <
                                        0.02 * (points[end].end - points[end].begin)) {
        ++end;
      }
      std::string mean;
      std::string above;
      std::string below;
      for (std::size_t k = i; k < end; ++k) {
        const VLPlot::Point& point = points[k];
        // A curve from the first edge to the last, through the middles.
        const double x = xOf(k == i         ? point.begin
                             : k + 1 == end ? point.end
                                            : (point.begin + point.end) / 2);
        mean += line("%s%.1f,%.1f", k == i ? "M" : "L", x, yOf(point.mean));
        above += line("%s%.1f,%.1f", k == i ? "M" : "L", x, yOf(point.high));
        below.insert(0, line("L%.1f,%.1f", x, yOf(point.low)));
        if (end == i + 1) {
          mean += line("L%.1f,%.1f", xOf(point.end), yOf(point.mean));
        }
      }
      mText += line("<path class=\"band%zu\" d=\"", number);
      mText.append(above).append(below).append("Z\"/>\n");
      mText += line("<path class=\"line%zu\" d=\"", number);
      mText.append(mean).append("\"/>\n");
      i = end;
    }
  }

  void draw(const VLPlot::Row& row, double top) {
    mText += words(kLeft - 8, top + kRow / 2 + 4, "dim", "end", row.name);
    mText += line("<rect class=\"lane\" x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\"/>\n",
                  kLeft, top + 3, kCurve, kRow - 6);
    for (const VLPlot::Mark& mark : row.marks) {
      const double x = xOf(mark.begin);
      const double width = std::max(kLeastMark, xOf(mark.end) - x);
      mText += line("<rect class=\"mark\" x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\">",
                    std::min(x, kWidth - kRight - width), top + 3, width, kRow - 6) +
               "<title>" + escaped(mark.text) + "</title></rect>\n";
    }
  }

  void drawTimeGrid(double top, double height) {
    const double step = timeStepFor(mSpan);
    for (long i = 1; static_cast<double>(i) * step < mSpan; ++i) {
      const double x = xOf(static_cast<double>(i) * step);
      mText += line("<line class=\"grid\" x1=\"%.1f\" x2=\"%.1f\" y1=\"%.1f\" y2=\"%.1f\"/>\n", x,
                    x, top, top + height);
    }
  }

  void drawTimes(double top) {
    const double step = timeStepFor(mSpan);
    const auto steps = static_cast<long>(mSpan * 1.0001 / step);
    for (long i = 0; i <= steps; ++i) {
      const double time = static_cast<double>(i) * step;
      mText += words(xOf(time), top + 16, "dim", "middle", timeText(time, mSpan));
    }
    mText += words(kLeft + kCurve / 2, top + 36, "dim", "middle", timeUnit(mSpan));
  }

  const VLPlot& mPlot;
  const double mSpan;
  std::string mText;
};

}  // namespace

std::string VLPlot::svg() const {
  return Picture(*this).make();
}

}  // namespace velor
