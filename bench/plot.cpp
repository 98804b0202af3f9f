#include "bench/plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ostream>
#include <string>

namespace bench {
namespace {

constexpr double kPanelWidth = 720;
constexpr double kPanelHeight = 260;
constexpr double kLeft = 60;
constexpr double kTop = 40;
constexpr double kPanelStep = kPanelHeight + 90;
constexpr std::array<const char*, 6> kColours{"#1f5fa8", "#c9302c", "#3a8f3a", "#8a5bb0", "#b8860b", "#444444"};

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char byte : text) {
    switch (byte) {
    case '<':
      escaped += "&lt;";
      break;
    case '&':
      escaped += "&amp;";
      break;
    default:
      escaped += byte;
    }
  }
  return escaped;
}

void Text(std::ostream& out, double x, double y, const std::string& text, const char* anchor, const char* colour) {
  out << "<text x=\"" << x << "\" y=\"" << y << "\" text-anchor=\"" << anchor << "\" fill=\"" << colour << "\">"
      << Escaped(text) << "</text>\n";
}

void Line(std::ostream& out, double x1, double y1, double x2, double y2) {
  out << "<line x1=\"" << x1 << "\" y1=\"" << y1 << "\" x2=\"" << x2 << "\" y2=\"" << y2 << "\" stroke=\"#d8d8d8\"/>\n";
}

/// From time to place: whole decades around all that is shown.
class Scale {
public:
  explicit Scale(const std::vector<const Curve*>& curves) {
    double low = 1e12;
    double high = 1e-3;
    for (const Curve* curve : curves) {
      for (const double value : curve->quantiles) {
        low = std::min(low, std::max(value, 0.1));
        high = std::max(high, value);
      }
    }
    m_low = std::floor(std::log10(low));
    m_high = std::max(m_low + 1, std::ceil(std::log10(high)));
  }

  double X(double value) const {
    return kLeft + (std::log10(std::max(value, 0.1)) - m_low) / (m_high - m_low) * kPanelWidth;
  }
  int FirstDecade() const { return static_cast<int>(m_low); }
  int LastDecade() const { return static_cast<int>(m_high); }

private:
  double m_low = 0;
  double m_high = 1;
};

void Panel(std::ostream& out, double top, const std::string& group, const std::vector<const Curve*>& curves) {
  const Scale scale(curves);
  const double bottom = top + kPanelHeight;
  Text(out, kLeft, top - 14, group, "start", "#000000");
  for (int decade = scale.FirstDecade(); decade <= scale.LastDecade(); ++decade) {
    const double x = scale.X(std::pow(10, decade));
    Line(out, x, top, x, bottom);
    const double value = std::pow(10, decade);
    Text(out, x, bottom + 18,
         value >= 1000 ? std::to_string(static_cast<int>(value / 1000)) + " ms"
         : value >= 1  ? std::to_string(static_cast<int>(value)) + " us"
                       : "0.1 us",
         "middle", "#555555");
  }
  for (int percent = 0; percent <= 100; percent += 25) {
    const double y = bottom - percent / 100.0 * kPanelHeight;
    Line(out, kLeft, y, kLeft + kPanelWidth, y);
    Text(out, kLeft - 6, y + 4, std::to_string(percent) + " %", "end", "#555555");
  }
  for (std::size_t i = 0; i < curves.size(); ++i) {
    const char* const colour = kColours[i % kColours.size()];
    const Samples& quantiles = curves[i]->quantiles;
    out << "<polyline fill=\"none\" stroke-width=\"1.6\" stroke=\"" << colour << "\" points=\"";
    for (std::size_t at = 0; at < quantiles.size(); ++at) {
      const double share = static_cast<double>(at) / static_cast<double>(quantiles.size() - 1);
      out << scale.X(quantiles[at]) << ',' << bottom - share * kPanelHeight << ' ';
    }
    out << "\"/>\n";
    Text(out, kLeft + kPanelWidth - 8, bottom - 12 - 18 * static_cast<double>(i), curves[i]->name, "end", colour);
  }
}

} // namespace

void WritePlot(std::ostream& out, const std::vector<Curve>& curves) {
  std::vector<std::string> groups;
  for (const Curve& curve : curves) {
    if (std::find(groups.begin(), groups.end(), curve.group) == groups.end()) {
      groups.push_back(curve.group);
    }
  }
  const double width = kLeft + kPanelWidth + 40;
  const double height = kTop + kPanelStep * static_cast<double>(groups.size());
  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\"" << height
      << "\" font-family=\"sans-serif\" font-size=\"13\">\n<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
  double top = kTop;
  for (const std::string& group : groups) {
    std::vector<const Curve*> members;
    for (const Curve& curve : curves) {
      if (curve.group == group && curve.quantiles.size() > 1) {
        members.push_back(&curve);
      }
    }
    if (!members.empty()) {
      Panel(out, top, group, members);
    }
    top += kPanelStep;
  }
  out << "</svg>\n";
}

} // namespace bench
