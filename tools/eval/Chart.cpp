#include "Chart.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// Geometry in SVG user units (pixels).
const double kLeft = 70, kRight = 20, kTop = 60;
const double kPanelHeight = 220, kLabelRoom = 90;  // each panel, and its photo names below it
const double kBar = 9, kGroupGap = 12;
const char* kColour[kMethodCount] = {"#1f77b4", "#2ca02c", "#d62728", "#7f7f7f"};

std::string num(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", v);
  return text;
}

std::string tickLabel(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", v);
  return text;
}

std::string escaped(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string text(double x, double y, const std::string& body, const std::string& extra = "") {
  return "<text x=\"" + num(x) + "\" y=\"" + num(y) + "\"" + extra + ">" + escaped(body) + "</text>\n";
}

std::string line(double x1, double y1, double x2, double y2, const char* colour) {
  return "<line x1=\"" + num(x1) + "\" y1=\"" + num(y1) + "\" x2=\"" + num(x2) + "\" y2=\"" + num(y2) +
         "\" stroke=\"" + colour + "\"/>\n";
}

// A linear axis from 0 to a round number at or above `top`: 1, 2 or 5 times
// a power of ten per tick, at most six ticks.
std::vector<double> linearTicks(double top) {
  top = std::max(top, 1e-9);
  double step = std::pow(10.0, std::floor(std::log10(top / 6)));
  for (double factor : {1.0, 2.0, 5.0, 10.0})
    if (top / (step * factor) <= 6) {
      step *= factor;
      break;
    }
  std::vector<double> ticks;
  for (double v = 0; v < top + step * 0.999; v += step) ticks.push_back(v);
  return ticks;
}

struct Panel {
  std::string title, unit;
  double y0;                      // top of the plotting area
  std::vector<Method> methods;    // bar order within a group
  bool logScale;
  double (*value)(const MethodScore&);
};

class Drawing {
 public:
  Drawing(const std::vector<PhotoReport>& photos, double groupWidth)
      : photos_(photos), groupWidth_(groupWidth) {}

  std::string panel(const Panel& p) const {
    double top = 0, bottom = 1e300;
    for (const PhotoReport& photo : photos_)
      for (Method m : p.methods)
        if (photo.methods[m].ran) {
          top = std::max(top, p.value(photo.methods[m]));
          bottom = std::min(bottom, p.value(photo.methods[m]));
        }
    std::vector<double> ticks;
    if (p.logScale) {  // decades from below the smallest to above the largest
      const double low = std::floor(std::log10(std::max(bottom, 0.1))), high = std::ceil(std::log10(std::max(top, 1.0)));
      for (double e = low; e <= std::max(high, low + 1); ++e) ticks.push_back(std::pow(10.0, e));
    } else {
      ticks = linearTicks(top);
    }
    const auto y = [&](double v) {
      const double share = p.logScale ? (std::log10(std::max(v, ticks.front())) - std::log10(ticks.front())) /
                                            (std::log10(ticks.back()) - std::log10(ticks.front()))
                                      : v / ticks.back();
      return p.y0 + kPanelHeight * (1.0 - share);
    };
    const double width = groupWidth_ * photos_.size();
    std::string svg = text(kLeft, p.y0 - 12, p.title, " font-weight=\"bold\"");
    for (double t : ticks) {
      svg += line(kLeft, y(t), kLeft + width, y(t), "#dddddd");
      svg += text(kLeft - 6, y(t) + 4, tickLabel(t), " text-anchor=\"end\"");
    }
    svg += text(16, p.y0 + kPanelHeight / 2, p.unit,
                " text-anchor=\"middle\" transform=\"rotate(-90 16 " + num(p.y0 + kPanelHeight / 2) + ")\"");
    for (size_t i = 0; i < photos_.size(); ++i) {
      const double gx = kLeft + groupWidth_ * i + kGroupGap / 2;
      for (size_t k = 0; k < p.methods.size(); ++k) {
        const MethodScore& s = photos_[i].methods[p.methods[k]];
        if (!s.ran) continue;
        const double top = y(p.value(s)), x = gx + kBar * k;
        svg += "<rect x=\"" + num(x) + "\" y=\"" + num(top) + "\" width=\"" + num(kBar - 1) + "\" height=\"" +
               num(p.y0 + kPanelHeight - top) + "\" fill=\"" + kColour[p.methods[k]] + "\"><title>" +
               escaped(photos_[i].name + ", " + methodInfo(p.methods[k]).title + ": " + num(p.value(s)) + " " +
                       p.unit) +
               "</title></rect>\n";
      }
      const double lx = gx + kBar * p.methods.size() / 2, ly = p.y0 + kPanelHeight + 14;
      svg += text(lx, ly, photos_[i].name,
                  " text-anchor=\"end\" transform=\"rotate(-40 " + num(lx) + " " + num(ly) + ")\"");
    }
    svg += line(kLeft, p.y0 + kPanelHeight, kLeft + width, p.y0 + kPanelHeight, "#000000");
    return svg;
  }

 private:
  const std::vector<PhotoReport>& photos_;
  double groupWidth_;
};

std::vector<Method> methodsWithRuns(const std::vector<PhotoReport>& photos, bool timedOnly) {
  std::vector<Method> methods;
  for (int m = 0; m < kMethodCount; ++m) {
    const Method method = static_cast<Method>(m);
    if (timedOnly && !methodInfo(method).timed) continue;
    if (std::any_of(photos.begin(), photos.end(), [&](const PhotoReport& p) { return p.methods[m].ran; }))
      methods.push_back(method);
  }
  return methods;
}

}  // namespace

std::string chartSvg(const std::vector<PhotoReport>& photos) {
  const std::vector<Method> scored = methodsWithRuns(photos, false), timed = methodsWithRuns(photos, true);
  const double groupWidth = kBar * std::max<size_t>(scored.size(), 1) + kGroupGap;
  const double width = kLeft + kRight + std::max(groupWidth * photos.size(), 480.0);
  const double panelStep = kPanelHeight + kLabelRoom + 40;
  const double height = kTop + 2 * panelStep;

  std::string svg = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  svg += "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + num(width) + "\" height=\"" + num(height) +
         "\" viewBox=\"0 0 " + num(width) + " " + num(height) +
         "\" font-family=\"sans-serif\" font-size=\"11\">\n";
  svg += "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
  double lx = kLeft;  // the legend, one swatch per method
  for (Method m : scored) {
    svg += "<rect x=\"" + num(lx) + "\" y=\"14\" width=\"12\" height=\"12\" fill=\"" + kColour[m] + "\"/>\n";
    svg += text(lx + 16, 24, methodInfo(m).title);
    lx += 110;
  }
  const Drawing drawing(photos, groupWidth);
  svg += drawing.panel({"Error rate per photo (mixed border pixels left out)", "error %", kTop + 20, scored,
                        false, [](const MethodScore& s) { return s.errImage; }});
  svg += drawing.panel({"CPU time per photo (log scale)", "CPU ms", kTop + 20 + panelStep, timed, true,
                        [](const MethodScore& s) { return s.cpuMs; }});
  return svg + "</svg>\n";
}
