#include "bench/report.h"

#include <array>
#include <cmath>
#include <iomanip>
#include <istream>
#include <ostream>
#include <sstream>
#include <string_view>
#include <utility>

namespace bench {
namespace {

constexpr int kQuantileSteps = 200;
constexpr double kLeeway = 1.25;

std::string Number(double value) {
  std::ostringstream out;
  const double size = std::fabs(value);
  out << std::fixed << std::setprecision(size >= 1000 ? 0 : size >= 100 ? 1 : size >= 10 ? 2 : 3) << value;
  return out.str();
}

std::string WithUnit(double value, const std::string& unit) {
  return unit == "x" ? Number(value) + " ×" : Number(value) + " " + unit;
}

std::string SpreadText(const Row& row) {
  return row.value.low == row.value.high ? "" : Number(row.value.low) + " to " + Number(row.value.high);
}

std::string BoundText(const Row& row) {
  switch (row.kind) {
  case Bound::kNone:
    return "reported";
  case Bound::kAtMost:
    return "≤ " + WithUnit(row.bound, row.unit);
  case Bound::kAtLeast:
    return "≥ " + WithUnit(row.bound, row.unit);
  case Bound::kBetween:
    return Number(row.bound) + " to " + WithUnit(row.upper, row.unit);
  }
  return "";
}

std::string PartsText(const Row& row) {
  if (row.partsUnit.empty()) {
    return "";
  }
  return Number(row.subject) + " over " + Number(row.reference) + " " + row.partsUnit;
}

std::string Verdict(const Row& row) {
  if (row.kind == Bound::kNone) {
    return "";
  }
  return row.IsMet() ? "met" : "not met";
}

// Columns are counted in characters, not bytes.
std::string Padded(const std::string& text, std::size_t width) {
  std::size_t length = 0;
  for (const char byte : text) {
    length += (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U ? 1 : 0;
  }
  return length < width ? text + std::string(width - length, ' ') : text;
}

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char byte : text) {
    if (byte == '"' || byte == '\\') {
      quoted += '\\';
    }
    quoted += byte;
  }
  return quoted + "\"";
}

const char* KindName(Bound kind) {
  static constexpr std::array<const char*, 4> kNames{"none", "at most", "at least", "between"};
  return kNames[static_cast<std::size_t>(kind)];
}

} // namespace

bool Row::IsMet() const {
  switch (kind) {
  case Bound::kNone:
    return true;
  case Bound::kAtMost:
    return value.median <= bound;
  case Bound::kAtLeast:
    return value.median >= bound;
  case Bound::kBetween:
    return value.median >= bound && value.median <= upper;
  }
  return false;
}

bool Row::IsFarOff() const {
  if (unit == "ms") {
    return false; // a time has no reference beside it, so a busy machine spoils it
  }
  const double held = accepted != 0 ? accepted : bound;
  switch (kind) {
  case Bound::kNone:
    return false;
  case Bound::kAtMost:
    return value.median > held * kLeeway;
  case Bound::kAtLeast:
    return value.median < held / kLeeway;
  case Bound::kBetween:
    return value.median < bound / kLeeway || value.median > upper * kLeeway;
  }
  return true;
}

Curve MakeCurve(std::string group, std::string name, const Samples& samples) {
  Curve curve{std::move(group), std::move(name), {}};
  for (int step = 0; step <= kQuantileSteps; ++step) {
    curve.quantiles.push_back(Quantile(samples, static_cast<double>(step) / kQuantileSteps));
  }
  return curve;
}

void Report::Write(std::ostream& out) const {
  out << std::setprecision(9);
  for (const Row& row : rows) {
    out << "row\t" << row.id << '\t' << row.what << '\t' << row.unit << '\t' << row.partsUnit << '\t' << row.note
        << '\t' << row.value.median << ' ' << row.value.low << ' ' << row.value.high << ' '
        << static_cast<int>(row.kind) << ' ' << row.bound << ' ' << row.upper << ' ' << row.subject << ' '
        << row.reference << ' ' << row.accepted << '\n';
  }
  for (const Curve& curve : curves) {
    out << "curve\t" << curve.group << '\t' << curve.name << '\t';
    for (const double value : curve.quantiles) {
      out << value << ' ';
    }
    out << '\n';
  }
}

void Report::Read(std::istream& in) {
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string kind;
    std::getline(fields, kind, '\t');
    if (kind == "row") {
      Row row;
      for (std::string* field : {&row.id, &row.what, &row.unit, &row.partsUnit, &row.note}) {
        std::getline(fields, *field, '\t');
      }
      int bound = 0;
      fields >> row.value.median >> row.value.low >> row.value.high >> bound >> row.bound >> row.upper >> row.subject >>
          row.reference >> row.accepted;
      row.kind = static_cast<Bound>(bound);
      rows.push_back(std::move(row));
    } else if (kind == "curve") {
      Curve curve;
      std::getline(fields, curve.group, '\t');
      std::getline(fields, curve.name, '\t');
      for (double value = 0; fields >> value;) {
        curve.quantiles.push_back(value);
      }
      curves.push_back(std::move(curve));
    }
  }
}

void PrintTable(std::ostream& out, const Report& report) {
  out << Padded("what", 98) << Padded("figure", 14) << Padded("middle half", 20) << Padded("bound", 20) << Padded("", 9)
      << "parts\n";
  for (const Row& row : report.rows) {
    out << Padded(row.what, 98) << Padded(WithUnit(row.value.median, row.unit), 14) << Padded(SpreadText(row), 20)
        << Padded(BoundText(row), 20) << Padded(Verdict(row), 9) << PartsText(row) << '\n';
  }
}

void PrintMarkdown(std::ostream& out, const Report& report) {
  out << "| What | Figure | Middle half | Bound | | Subject over reference |\n|---|---|---|---|---|---|\n";
  for (const Row& row : report.rows) {
    const std::string verdict = Verdict(row);
    out << "| " << row.what << " | " << WithUnit(row.value.median, row.unit) << " | " << SpreadText(row) << " | "
        << BoundText(row) << " | " << (verdict == "not met" ? "**not met**" : verdict) << " | " << PartsText(row)
        << " |\n";
  }
}

void PrintJson(std::ostream& out, const Report& report) {
  out << std::setprecision(9) << "{\"rows\": [";
  const char* separator = "\n";
  for (const Row& row : report.rows) {
    out << separator << "  {\"id\": " << Quoted(row.id) << ", \"what\": " << Quoted(row.what)
        << ", \"unit\": " << Quoted(row.unit) << ", \"value\": " << row.value.median << ", \"low\": " << row.value.low
        << ", \"high\": " << row.value.high << ", \"bound\": " << Quoted(KindName(row.kind))
        << ", \"limit\": " << row.bound << ", \"upper\": " << row.upper
        << ", \"met\": " << (row.IsMet() ? "true" : "false") << ", \"far_off\": " << (row.IsFarOff() ? "true" : "false")
        << ", \"subject\": " << row.subject << ", \"reference\": " << row.reference
        << ", \"parts_unit\": " << Quoted(row.partsUnit) << ", \"note\": " << Quoted(row.note) << "}";
    separator = ",\n";
  }
  out << "\n]}\n";
}

} // namespace bench
