#include "tools/vexelctl/text.h"
#include "tools/vexelctl/timeline.h"

#include <algorithm>
#include <cstdio>

namespace vexelctl {
namespace {

constexpr double kLabelWidth = 230;
constexpr double kRowHeight = 30;
constexpr double kTop = 64;
constexpr double kRunTitle = 26;
constexpr double kRight = 24;
constexpr double kLeastWidth = 900;      // of the picture
constexpr double kMostWidth = 16000;     // of the picture, beyond which all is drawn closer together
constexpr double kLetterWidth = 6.2;     // of the labels within spans
constexpr double kSecondWidth = 36;      // of a second in which little happens
constexpr double kLineWidth = 13;        // for each line drawn in a second
constexpr double kMostSecondWidth = 700; // of a second in which much happens
constexpr double kMostGapWidth = 90;     // of seconds in which nothing happens

const char* ColourOf(SpanKind kind) {
  switch (kind) {
  case SpanKind::kWait:
    return "#b8b8b8";
  case SpanKind::kOpening:
    return "#f3d27a";
  case SpanKind::kServed:
    return "#9cc7ee";
  case SpanKind::kPreloaded:
    return "#dfe6ec";
  case SpanKind::kConnecting:
    return "#f0a860";
  case SpanKind::kServing:
    return "#a5d8a8";
  case SpanKind::kClosing:
    return "#d3b5e3";
  }
  return "#000000";
}

const char* ColourOf(MarkKind kind) {
  switch (kind) {
  case MarkKind::kStart:
    return "#1f4e8c";
  case MarkKind::kSend:
    return "#2468b0";
  case MarkKind::kReceive:
    return "#2c8136";
  case MarkKind::kClose:
    return "#7a3b99";
  case MarkKind::kConnect:
    return "#b0640c";
  case MarkKind::kRefused:
    return "#d9880f";
  case MarkKind::kFailure:
  case MarkKind::kCrash:
    return "#c62828";
  case MarkKind::kKill:
    return "#111111";
  case MarkKind::kExit:
    return "#5f3b2b";
  }
  return "#000000";
}

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

// Where a moment stands: seconds get room by what happens in them, and seconds in which nothing does are drawn short.
class Scale {
public:
  explicit Scale(const Timeline& timeline) {
    double x = 0;
    std::int64_t last = 0;
    for (const TimelineSecond& second : timeline.seconds) {
      if (!m_stops.empty() && second.second > last + 1) {
        const double gap = static_cast<double>(second.second - last - 1) * kSecondWidth;
        if (gap > kMostGapWidth) {
          m_breaks.emplace_back(last + 1, second.second);
        }
        x += std::min(gap, kMostGapWidth);
      }
      m_stops.push_back({second.second, x});
      x += std::clamp(static_cast<double>(second.lines) * kLineWidth, kSecondWidth, kMostSecondWidth);
      m_stops.push_back({second.second + 1, x});
      last = second.second;
    }
    m_factor = 1;
    if (x > kMostWidth) {
      m_factor = kMostWidth / x;
    } else if (x > 0 && x < kLeastWidth - kLabelWidth - kRight) {
      m_factor = (kLeastWidth - kLabelWidth - kRight) / x;
    }
    m_width = x * m_factor;
  }

  double X(std::int64_t us) const {
    const double second = static_cast<double>(us) / 1e6;
    double x = 0;
    for (std::size_t i = 0; i + 1 < m_stops.size(); ++i) {
      const auto begin = static_cast<double>(m_stops[i].second);
      const auto end = static_cast<double>(m_stops[i + 1].second);
      if (second >= end || end <= begin) {
        x = m_stops[i + 1].x;
        continue;
      }
      x = m_stops[i].x + (m_stops[i + 1].x - m_stops[i].x) * std::max(0.0, second - begin) / (end - begin);
      break;
    }
    return kLabelWidth + x * m_factor;
  }

  double Width() const { return m_width; }
  const std::vector<std::pair<std::int64_t, std::int64_t>>& Breaks() const { return m_breaks; }

private:
  struct Stop {
    std::int64_t second;
    double x;
  };
  std::vector<Stop> m_stops;
  std::vector<std::pair<std::int64_t, std::int64_t>> m_breaks; // seconds that are drawn short
  double m_factor;
  double m_width;
};

// A sign of about 11 pixels around a point, with a text for those who point at it.
std::string Sign(MarkKind kind, double x, double y, const std::string& title) {
  const auto polygon = [x, y](std::initializer_list<std::pair<double, double>> points) {
    std::string text;
    for (const auto& [dx, dy] : points) {
      text += Number(x + dx) + "," + Number(y + dy) + " ";
    }
    return "<polygon points=\"" + text + "\"";
  };
  const auto line = [x, y](double x1, double y1, double x2, double y2) {
    return "M" + Number(x + x1) + " " + Number(y + y1) + "L" + Number(x + x2) + " " + Number(y + y2);
  };
  const std::string colour = ColourOf(kind);
  std::string shape;
  switch (kind) {
  case MarkKind::kStart:
    shape = polygon({{-4, -6}, {6, 0}, {-4, 6}}) + " fill=\"" + colour + "\"";
    break;
  case MarkKind::kSend:
    shape = polygon({{-4.5, -5}, {4.5, -5}, {0, 4}}) + " fill=\"" + colour + "\"";
    break;
  case MarkKind::kReceive:
    shape = polygon({{-4.5, 5}, {4.5, 5}, {0, -4}}) + " fill=\"" + colour + "\"";
    break;
  case MarkKind::kClose:
    shape = "<rect x=\"" + Number(x - 4) + "\" y=\"" + Number(y - 4) + "\" width=\"8\" height=\"8\" fill=\"" + colour +
            "\"";
    break;
  case MarkKind::kConnect:
    shape = "<circle cx=\"" + Number(x) + "\" cy=\"" + Number(y) + "\" r=\"4.5\" fill=\"" + colour + "\"";
    break;
  case MarkKind::kRefused:
    shape = polygon({{0, -6}, {6, 0}, {0, 6}, {-6, 0}}) + " fill=\"" + colour + "\"";
    break;
  case MarkKind::kFailure:
    shape =
        "<path d=\"" + line(-5, -5, 5, 5) + line(-5, 5, 5, -5) + "\" stroke=\"" + colour + "\" stroke-width=\"2.5\"";
    break;
  case MarkKind::kCrash:
    shape = polygon({{0, -8},
                     {2, -3},
                     {7, -5},
                     {4, 0},
                     {7, 5},
                     {2, 3},
                     {0, 8},
                     {-2, 3},
                     {-7, 5},
                     {-4, 0},
                     {-7, -5},
                     {-2, -3}}) +
            " fill=\"" + colour + "\"";
    break;
  case MarkKind::kKill:
    shape = "<circle cx=\"" + Number(x) + "\" cy=\"" + Number(y) + "\" r=\"5\" fill=\"none\" stroke=\"" + colour +
            "\" stroke-width=\"2.5\"";
    break;
  case MarkKind::kExit:
    shape = "<path d=\"" + line(0, -7, 0, 7) + "\" stroke=\"" + colour + "\" stroke-width=\"3\"";
    break;
  }
  const std::size_t end = shape.find(' ');
  const std::string element = shape.substr(1, end - 1);
  return shape + "><title>" + XmlEscaped(title) + "</title></" + element + ">\n";
}

std::string Text(double x, double y, const std::string& attributes, const std::string& text) {
  return "<text x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" " + attributes + ">" + XmlEscaped(text) + "</text>\n";
}

std::string Row(const TimelineLane& lane, const Scale& scale, double top) {
  std::string out = Text(12, top + 19, "class=\"label\"", Shortened(lane.title, 34));
  for (const TimelineSpan& span : lane.spans) {
    const double x = scale.X(span.begin);
    const double width = std::max(1.5, scale.X(span.end) - x);
    const bool isWait = span.kind == SpanKind::kWait;
    const bool isConnecting = span.kind == SpanKind::kConnecting;
    const double y = top + (isWait ? 2 : isConnecting ? 22 : 6);
    const double height = isWait ? 3 : isConnecting ? 4 : 18;
    out += "<rect x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" width=\"" + Number(width) + "\" height=\"" +
           Number(height) + "\" rx=\"2\" fill=\"" + ColourOf(span.kind) + "\"><title>" + XmlEscaped(span.name) +
           "</title></rect>\n";
  }
  // Names stand where they have room: in the first stretch of a bar that no sign covers.
  for (const TimelineSpan& span : lane.spans) {
    if (span.kind == SpanKind::kWait || span.kind == SpanKind::kConnecting) {
      continue;
    }
    const double needed = static_cast<double>(span.name.size()) * kLetterWidth + 12;
    const double end = scale.X(span.end);
    double begin = scale.X(span.begin);
    for (const TimelineMark& mark : lane.marks) {
      const double x = scale.X(mark.at);
      if (x + 8 < begin || x > end) {
        continue;
      }
      if (x - 8 - begin >= needed) {
        break;
      }
      begin = std::max(begin, x + 8);
    }
    if (end - begin >= needed) {
      out += Text(begin + 6, top + 19, "class=\"name\"", span.name);
    }
  }
  for (const TimelineMark& mark : lane.marks) {
    out += Sign(mark.kind, scale.X(mark.at), top + 15,
                ClockText(mark.at / 1000000) + " " + mark.name + " (line " + std::to_string(mark.line) + ")");
  }
  return out;
}

std::string Legend(double width, double* y) {
  std::string out;
  double x = 12;
  const auto place = [&](double needed) {
    if (x + needed > width - 12 && x > 12) {
      x = 12;
      *y += 24;
    }
    const double here = x;
    x += needed;
    return here;
  };
  for (const SpanKind kind : {SpanKind::kWait, SpanKind::kOpening, SpanKind::kServed, SpanKind::kPreloaded,
                              SpanKind::kConnecting, SpanKind::kServing, SpanKind::kClosing}) {
    const std::string name = NameOf(kind);
    const double here = place(static_cast<double>(name.size()) * kLetterWidth + 48);
    const bool isThin = kind == SpanKind::kWait || kind == SpanKind::kConnecting;
    out += "<rect x=\"" + Number(here) + "\" y=\"" + Number(*y + (isThin ? 5 : 0)) + "\" width=\"24\" height=\"" +
           (isThin ? "4" : "14") + "\" rx=\"2\" fill=\"" + ColourOf(kind) + "\"/>\n" +
           Text(here + 30, *y + 11, "class=\"name\"", name);
  }
  x = 12;
  *y += 26;
  for (const MarkKind kind :
       {MarkKind::kStart, MarkKind::kConnect, MarkKind::kSend, MarkKind::kReceive, MarkKind::kClose, MarkKind::kExit,
        MarkKind::kRefused, MarkKind::kFailure, MarkKind::kCrash, MarkKind::kKill}) {
    const std::string name = NameOf(kind);
    const double here = place(static_cast<double>(name.size()) * kLetterWidth + 40);
    out += Sign(kind, here + 8, *y + 7, name) + Text(here + 22, *y + 11, "class=\"name\"", name);
  }
  *y += 24;
  return out;
}

} // namespace

std::string TimelineSvg(const Timeline& timeline, const std::string& title) {
  const Scale scale(timeline);
  const double width = std::max(kLeastWidth, kLabelWidth + scale.Width() + kRight);

  double y = kTop;
  std::string rows;
  int lastRun = 0;
  bool isOdd = false;
  for (const TimelineLane& lane : timeline.lanes) {
    if (lane.run != lastRun) {
      lastRun = lane.run;
      rows += Text(12, y + 18, "class=\"run\"", "run " + std::to_string(lane.run));
      y += kRunTitle;
    }
    if (isOdd) {
      rows += "<rect x=\"0\" y=\"" + Number(y) + "\" width=\"" + Number(width) + "\" height=\"" + Number(kRowHeight) +
              "\" fill=\"#000000\" fill-opacity=\"0.03\"/>\n";
    }
    isOdd = !isOdd;
    rows += Row(lane, scale, y);
    y += kRowHeight;
  }
  const double bottom = y;

  std::string axis;
  double freeFrom = 0;                                       // labels that would overlap are left out
  std::string lastDate = DateText(timeline.begin / 1000000); // stands in the title
  for (const TimelineSecond& second : timeline.seconds) {
    const double x = scale.X(second.second * 1000000);
    axis += "<line x1=\"" + Number(x) + "\" y1=\"" + Number(kTop - 8) + "\" x2=\"" + Number(x) + "\" y2=\"" +
            Number(bottom) + "\" stroke=\"#d0d0d0\" stroke-width=\"1\"/>\n";
    if (x >= freeFrom) {
      const std::string date = DateText(second.second);
      const bool isNewDay = date != lastDate;
      axis += Text(x + 2, kTop - 12, "class=\"tick\"", (isNewDay ? date + " " : "") + ClockText(second.second));
      freeFrom = x + (isNewDay ? 116 : 58);
      lastDate = date;
    }
  }
  for (const auto& [begin, end] : scale.Breaks()) {
    const double x = scale.X(begin * 1000000);
    const double breakWidth = scale.X(end * 1000000) - x;
    axis += "<rect x=\"" + Number(x) + "\" y=\"" + Number(kTop - 8) + "\" width=\"" + Number(breakWidth) +
            "\" height=\"" + Number(bottom - kTop + 8) + "\" fill=\"url(#quiet)\"><title>" +
            std::to_string(end - begin) + " s without a line</title></rect>\n";
  }

  y += 20;
  const std::string legend = Legend(width, &y);
  y += 14;
  const std::string note = "The log knows whole seconds: the lines of one second are spread evenly over it, in their "
                           "order. Hatched: time without a line, drawn short.";
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
                    Number(width) + "\" height=\"" + Number(y + 14) + "\" viewBox=\"0 0 " + Number(width) + " " +
                    Number(y + 14) + "\">\n";
  out += "<style>text{font-family:sans-serif;fill:#222222}.title{font-size:15px;font-weight:bold}"
         ".run{font-size:13px;font-weight:bold}.label{font-size:12px}.name{font-size:11px}"
         ".tick{font-size:10px;fill:#666666}</style>\n"
         "<defs><pattern id=\"quiet\" width=\"8\" height=\"8\" patternUnits=\"userSpaceOnUse\" "
         "patternTransform=\"rotate(45)\"><line x1=\"0\" y1=\"0\" x2=\"0\" y2=\"8\" stroke=\"#e4e4e4\" "
         "stroke-width=\"5\"/></pattern></defs>\n"
         "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
  out += Text(12, 26, "class=\"title\"", title);
  out += axis + rows + legend + Text(12, y, "class=\"tick\"", note) + "</svg>\n";
  return out;
}

} // namespace vexelctl
