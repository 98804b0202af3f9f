#pragma once

#include "bench/statistics.h"

#include <iosfwd>
#include <string>
#include <vector>

// What is measured, as it goes from a section's process to the one that prints.
namespace bench {

enum class Bound { kNone, kAtMost, kAtLeast, kBetween };

struct Row {
  std::string id;   // short and lasting, for machines
  std::string what; // for people
  std::string unit; // "x" for a ratio
  Spread value;     // the figure that the bound is for
  Bound kind = Bound::kNone;
  double bound = 0;      // the bound, or the lower one of two
  double upper = 0;      // the upper one of two
  double subject = 0;    // what the ratio is of, in `partsUnit`
  double reference = 0;  // and what it is over
  std::string partsUnit; // "us" or "ns"; empty when the figure is no ratio
  std::string note;      // what the reference is, or why there is no figure
  double accepted = 0;   // the figure that the short form holds a bound to that can't be met; 0 when it can

  bool IsMet() const;
  /// Whether the figure is worse than its bound by more than 25 %; never so for a time in milliseconds.
  bool IsFarOff() const;
};

/// The distribution of one thing's times in microseconds, for the plot.
struct Curve {
  std::string group; // the curves of a group share a picture
  std::string name;
  Samples quantiles; // from 0 to 100 %, evenly spaced
};
Curve MakeCurve(std::string group, std::string name, const Samples& samples);

struct Report {
  std::vector<Row> rows;
  std::vector<Curve> curves;

  void Write(std::ostream& out) const;
  void Read(std::istream& in); // adds what Write wrote
};

void PrintTable(std::ostream& out, const Report& report);
void PrintMarkdown(std::ostream& out, const Report& report);
void PrintJson(std::ostream& out, const Report& report);

} // namespace bench
