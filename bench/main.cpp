// vexelbench [--short] [--json FILE] [--markdown FILE] [--plot FILE] [--only SECTION]
// Runs the sections one after the other, each in a process of its own, and prints one table. With --short less is
// measured, and the exit code is 3 when a figure stays worse than its bound by more than 25 %.

#include "bench/board.h"
#include "bench/child.h"
#include "bench/plot.h"
#include "bench/sdk_library.h"
#include "bench/sections.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr DWORD kSectionLimitMs = 300000;
constexpr int kFarOff = 3;

struct Section {
  const char* name;
  void (*measure)(const bench::Effort& effort, bench::Report& report);
};
constexpr Section kSections[] = {
    {"round-trips", bench::MeasureRoundTrips},
    {"peers", bench::MeasurePeers},
    {"log", bench::MeasureLog},
    {"gate", bench::MeasureGate},
    {"delivery", bench::MeasureDelivery},
    {"events", bench::MeasureEvents},
    {"starting", bench::MeasureStarting},
    {"idle", bench::MeasureIdle},
};
constexpr Section kParts[] = {
    {"opening", bench::MeasureOneOpening}, // of "starting"
};
// A busy machine makes figures worse and never better: in a short run the sections with a figure that is far off are
// measured again before that counts.
constexpr int kAttempts = 3;

struct Options {
  bench::Effort effort;
  std::string json;
  std::string markdown;
  std::string plot;
  std::string only;
  std::string section; // in a section's own process: its name
  std::string out;     // and where its report goes
};

bool Parse(int argc, char** argv, Options* options) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--short") {
      options->effort.isShort = true;
      continue;
    }
    std::string* const value = argument == "--json"       ? &options->json
                               : argument == "--markdown" ? &options->markdown
                               : argument == "--plot"     ? &options->plot
                               : argument == "--only"     ? &options->only
                               : argument == "--section"  ? &options->section
                               : argument == "--out"      ? &options->out
                                                          : nullptr;
    if (value == nullptr || i + 1 == argc) {
      std::cerr << "vexelbench knows no option " << argument << '\n';
      return false;
    }
    *value = argv[++i];
  }
  return true;
}

int RunSection(const Options& options) {
  const auto run = [&options](const Section& section) {
    bench::Report report;
    section.measure(options.effort, report);
    std::ofstream out(options.out, std::ios::binary);
    report.Write(out);
    out.close();
    return out ? 0 : 1;
  };
  for (const Section& section : kSections) {
    if (options.section == section.name) {
      return run(section);
    }
  }
  for (const Section& part : kParts) {
    if (options.section == part.name) {
      return run(part);
    }
  }
  return 2;
}

/// Adds what the section's process measured. False when that failed.
bool Collect(const Section& section, const Options& options, bench::Report* report) {
  const std::filesystem::path out =
      std::filesystem::path(bench::ProgramFolder()) / (std::string("section-") + section.name + ".txt");
  std::filesystem::remove(out);
  std::cerr << "measuring " << section.name << std::endl;
  std::wstring arguments = bench::Wide(std::string("--section ") + section.name) + L" --out \"" + out.wstring() + L"\"";
  if (options.effort.isShort) {
    arguments += L" --short";
  }
  bench::Child child(L"vexelbench.exe", arguments);
  const int code = child.Wait(kSectionLimitMs);
  bench::EndEditors();
  if (code != 0) {
    std::cerr << "the section " << section.name
              << (code == -1 ? " does not end" : " failed with code " + std::to_string(code)) << '\n';
    return false;
  }
  std::ifstream in(out, std::ios::binary);
  report->Read(in);
  return true;
}

bool AnyFarOff(const bench::Report& report) {
  return std::any_of(report.rows.begin(), report.rows.end(), [](const bench::Row& row) { return row.IsFarOff(); });
}

/// Measures a section, in a short run until nothing is far off, and adds the last figures.
bool CollectGood(const Section& section, const Options& options, bench::Report* report) {
  bench::Report last;
  bool collected = Collect(section, options, &last);
  for (int i = 1; i < kAttempts && options.effort.isShort && collected && AnyFarOff(last); ++i) {
    bench::Report again;
    collected = Collect(section, options, &again);
    // Each figure's best attempt counts.
    for (std::size_t row = 0; row < again.rows.size() && row < last.rows.size(); ++row) {
      if (last.rows[row].IsFarOff()) {
        last.rows[row] = again.rows[row];
      }
    }
  }
  report->rows.insert(report->rows.end(), last.rows.begin(), last.rows.end());
  report->curves.insert(report->curves.end(), last.curves.begin(), last.curves.end());
  return collected;
}

bool Save(const std::string& path, const std::function<void(std::ostream&)>& print) {
  if (path.empty()) {
    return true;
  }
  std::ofstream out(path, std::ios::binary);
  print(out);
  out.close();
  if (!out) {
    std::cerr << "can't write " << path << '\n';
  }
  return static_cast<bool>(out);
}

} // namespace

int main(int argc, char** argv) {
  Options options;
  if (!Parse(argc, argv, &options)) {
    return 2;
  }
  bench::TheBoard();
  if (!options.section.empty()) {
    return RunSection(options);
  }
  bench::Report report;
  bool whole = true;
  for (const Section& section : kSections) {
    if (options.only.empty() || options.only == section.name) {
      whole = CollectGood(section, options, &report) && whole;
    }
  }
  bench::PrintTable(std::cout, report);
  const bool saved = Save(options.json, [&](std::ostream& out) { bench::PrintJson(out, report); }) &&
                     Save(options.markdown, [&](std::ostream& out) { bench::PrintMarkdown(out, report); }) &&
                     Save(options.plot, [&](std::ostream& out) { bench::WritePlot(out, report.curves); });
  if (!whole || !saved || report.rows.empty()) {
    return 1;
  }
  int code = 0;
  if (options.effort.isShort) {
    for (const bench::Row& row : report.rows) {
      if (row.IsFarOff()) {
        std::cout << "worse than its bound by more than 25 %: " << row.what << '\n';
        code = kFarOff;
      }
    }
  }
  std::cout.flush();
  return code;
}
