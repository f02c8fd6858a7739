#include "benchmarks/report/chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

#include "benchmarks/report/table.h"

namespace report {
namespace {

constexpr double kWidth = 720;
constexpr double kHeight = 420;
constexpr double kLeft = 80;
constexpr double kRight = 30;
constexpr double kTop = 50;
constexpr double kBottom = 50;
constexpr int kSteps = 5;  ///< Of a linear axis.

struct Point {
  double x;
  Figure figure;
};

/// The figures of one side.
struct Series {
  const char* name;
  const char* color;
  std::vector<Point> points;
};

/// Where values lie along a side of the plot.
class Axis {
 public:
  Axis(double least, double most, double from, double to, bool isLogarithmic)
      : isLogarithmic_(isLogarithmic),
        least_(isLogarithmic ? least : 0),
        most_(most),
        from_(from),
        to_(to) {}

  double at(double value) const {
    const double start = scaled(least_);
    return from_ + (to_ - from_) * (scaled(value) - start) / (scaled(most_) - start);
  }

  /// Where to label the axis: the powers of ten, or even steps.
  std::vector<double> ticks() const {
    std::vector<double> all;
    if (isLogarithmic_) {
      for (double tick = std::pow(10, std::ceil(scaled(least_))); tick <= most_; tick *= 10) {
        all.push_back(tick);
      }
    } else {
      for (int i = 0; i <= kSteps; ++i) all.push_back(most_ * i / kSteps);
    }
    return all;
  }

 private:
  double scaled(double value) const { return isLogarithmic_ ? std::log10(value) : value; }

  bool isLogarithmic_;
  double least_;
  double most_;
  double from_;
  double to_;
};

std::string number(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", value);
  return text.data();
}

/// "5000", "128 Ki", "16 Mi".
std::string count(double value) {
  constexpr double kKi = 1024;
  const char* unit = "";
  for (const char* larger : {" Ki", " Mi"}) {
    if (value < kKi || std::fmod(value, kKi) != 0) break;
    value /= kKi;
    unit = larger;
  }
  return std::to_string(std::lround(value)) + unit;
}

std::string textAt(double x, double y, const char* anchor, const std::string& text) {
  return "<text x=\"" + number(x) + "\" y=\"" + number(y) + "\" text-anchor=\"" + anchor + "\">" +
         text + "</text>\n";
}

std::string lineFrom(double x1, double y1, double x2, double y2, const char* color) {
  return "<line x1=\"" + number(x1) + "\" y1=\"" + number(y1) + "\" x2=\"" + number(x2) +
         "\" y2=\"" + number(y2) + "\" stroke=\"" + color + "\"/>\n";
}

std::vector<Series> seriesOf(const Chart& chart, const Results& results) {
  constexpr const char* kSides[] = {"clientcomm", "floor", "alternative"};
  std::vector<Series> all = {{"ClientComm", "#1f6fb4", {}},
                             {chart.floor, "#6b6b6b", {}},
                             {chart.alternative, "#c4572d", {}}};
  for (const double x : results.pointsOf(chart.row)) {
    if (chart.isLogarithmic && x <= 0) continue;
    for (std::size_t side = 0; side < all.size(); ++side) {
      const auto figure = results.figure(std::string(chart.row) + "/" +
                                         std::to_string(std::lround(x)) + "/" + kSides[side]);
      if (figure) all[side].points.push_back({x, *figure});
    }
  }
  std::erase_if(all, [](const Series& series) { return series.points.empty(); });
  return all;
}

/// The line through the medians, with the spread of each.
std::string curve(const Series& series, const Axis& x, const Axis& y) {
  std::string line;
  std::string marks;
  for (const Point& point : series.points) {
    const double at = x.at(point.x);
    line += number(at) + "," + number(y.at(point.figure.median)) + " ";
    marks += lineFrom(at, y.at(point.figure.least), at, y.at(point.figure.most), series.color) +
             "<circle cx=\"" + number(at) + "\" cy=\"" + number(y.at(point.figure.median)) +
             "\" r=\"3\" fill=\"" + series.color + "\"/>\n";
  }
  return "<polyline points=\"" + line + "\" fill=\"none\" stroke=\"" + series.color +
         "\" stroke-width=\"1.5\"/>\n" + marks;
}

std::string legend(const std::vector<Series>& all) {
  std::string text;
  double y = kTop + 12;
  for (const Series& series : all) {
    text += lineFrom(kLeft + 12, y - 4, kLeft + 36, y - 4, series.color) +
            textAt(kLeft + 42, y, "start", series.name);
    y += 16;
  }
  return text;
}

std::string frame(const Chart& chart, const std::vector<double>& points, const Axis& x,
                  const Axis& y) {
  const double bottom = kHeight - kBottom;
  const double right = kWidth - kRight;
  std::string text = textAt(kWidth / 2, 24, "middle", chart.title) +
                     textAt(kWidth / 2, kHeight - 10, "middle", chart.xLabel);
  for (const double tick : y.ticks()) {
    text += lineFrom(kLeft, y.at(tick), right, y.at(tick), "#e2e2e2") +
            textAt(kLeft - 6, y.at(tick) + 4, "end", duration(tick));
  }
  double last = 0;
  for (const double point : points) {
    constexpr double kRoom = 36;  // less, and the labels run into each other
    text += lineFrom(x.at(point), bottom, x.at(point), bottom + 4, "#404040");
    if (x.at(point) - last < kRoom) continue;
    last = x.at(point);
    text += textAt(last, bottom + 18, "middle", count(point));
  }
  return text + lineFrom(kLeft, bottom, right, bottom, "#404040") +
         lineFrom(kLeft, kTop, kLeft, bottom, "#404040");
}

}  // namespace

std::string draw(const Chart& chart, const Results& results) {
  const std::vector<Series> all = seriesOf(chart, results);
  if (all.empty()) return {};
  std::vector<double> points;
  double least = all.front().points.front().figure.least;
  double most = 0;
  for (const Series& series : all) {
    for (const Point& point : series.points) {
      points.push_back(point.x);
      least = std::min(least, point.figure.least);
      most = std::max(most, point.figure.most);
    }
  }
  std::sort(points.begin(), points.end());
  points.erase(std::unique(points.begin(), points.end()), points.end());
  const Axis x(points.front(), points.back(), kLeft, kWidth - kRight, chart.isLogarithmic);
  const Axis y(least, most, kHeight - kBottom, kTop, chart.isLogarithmic);
  std::string image = "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + count(kWidth) +
                      " " + count(kHeight) +
                      "\" font-family=\"sans-serif\" font-size=\"12\">\n"
                      "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n" +
                      frame(chart, points, x, y);
  for (const Series& series : all) image += curve(series, x, y);
  return image + legend(all) + "</svg>\n";
}

}  // namespace report
