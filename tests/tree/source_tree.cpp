#include "tests/tree/source_tree.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>

namespace tree {
namespace {

struct Layer {
  std::string_view folder; // ends with a slash
  int height;
};

// The longest folder that fits decides.
constexpr std::array<Layer, 7> kLayers{{{"include/", 0},
                                        {"platform/", 1},
                                        {"foundation/", 2},
                                        {"public/vexelsdk/", 3},
                                        {"vexelsdk/link/", 4},
                                        {"vexelsdk/engine/", 5},
                                        {"vexelsdk/", 6}}};

constexpr std::string_view kPipeFolder = "pipe/";

constexpr std::array<std::string_view, 7> kSystemHeaderFolders{
    "platform/win32/", "pipe/", "examples/", "tools/", "bench/", "tests/windows/", "tests/pipe/"};

constexpr std::array<std::string_view, 3> kFoldersAboveThePlatform{"foundation/", "public/", "vexelsdk/"};

const std::set<std::string, std::less<>> kSystemHeaders{
    "accctrl.h",  "aclapi.h",       "combaseapi.h",      "commctrl.h",          "commdlg.h",
    "dbghelp.h",  "dwmapi.h",       "fileapi.h",         "gdiplus.h",           "handleapi.h",
    "initguid.h", "knownfolders.h", "libloaderapi.h",    "minwindef.h",         "namedpipeapi.h",
    "objbase.h",  "ole2.h",         "oleauto.h",         "processthreadsapi.h", "psapi.h",
    "sddl.h",     "sdkddkver.h",    "securitybaseapi.h", "shellapi.h",          "shlobj.h",
    "shlwapi.h",  "shobjidl.h",     "synchapi.h",        "sysinfoapi.h",        "tchar.h",
    "tlhelp32.h", "userenv.h",      "uxtheme.h",         "wincodec.h",          "windef.h",
    "windows.h",  "windowsx.h",     "winerror.h",        "winbase.h",           "wingdi.h",
    "winnls.h",   "winnt.h",        "winreg.h",          "winsock2.h",          "winternl.h",
    "winuser.h",  "winver.h",       "wtsapi32.h"};

bool StartsWithAny(std::string_view path, const auto& folders) {
  return std::any_of(folders.begin(), folders.end(),
                     [path](std::string_view folder) { return path.starts_with(folder); });
}

std::optional<int> HeightOf(std::string_view path) {
  const Layer* best = nullptr;
  for (const Layer& layer : kLayers) {
    if (path.starts_with(layer.folder) && (best == nullptr || layer.folder.size() > best->folder.size())) {
      best = &layer;
    }
  }
  return best == nullptr ? std::nullopt : std::optional<int>(best->height);
}

std::string FolderOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? "." : std::string(path.substr(0, slash));
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char letter) { return static_cast<char>(std::tolower(static_cast<unsigned char>(letter))); });
  return text;
}

std::vector<std::string> LinesOf(std::string_view text) {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    lines.emplace_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

struct Include {
  std::string name;
  std::size_t line;
};

std::vector<Include> IncludesOf(const SourceFile& file) {
  static const std::regex kDirective(R"(^\s*#\s*include\s*["<]([^">]+)[">])");
  std::vector<Include> includes;
  std::size_t number = 0;
  for (const std::string& line : LinesOf(WithoutComments(file.text))) {
    ++number;
    std::smatch match;
    if (std::regex_search(line, match, kDirective)) {
      includes.push_back({match[1].str(), number});
    }
  }
  return includes;
}

std::string Place(std::string_view path, std::size_t line) {
  return std::string(path) + ":" + std::to_string(line) + ": ";
}

void CheckDirection(const std::vector<Edge>& edges, std::vector<std::string>& faults) {
  for (const Edge& edge : edges) {
    const std::optional<int> from = HeightOf(edge.from);
    const std::optional<int> to = HeightOf(edge.to);
    if (from.has_value() && !to.has_value()) {
      faults.push_back(Place(edge.from, edge.line) + "includes " + edge.to + ", which is no part of the library");
    } else if (from.has_value() && *to > *from) {
      faults.push_back(Place(edge.from, edge.line) + "includes upwards: " + edge.to);
    } else if (edge.from.starts_with(kPipeFolder) && !edge.to.starts_with(kPipeFolder)) {
      faults.push_back(Place(edge.from, edge.line) + "the pipe library stands alone, and includes " + edge.to);
    }
  }
}

using Graph = std::map<std::string, std::set<std::string>>;

// Walks depth first. `trail` is the way from the start to `node`; a step back onto it closes a circle.
void Walk(const Graph& graph, const std::string& node, std::vector<std::string>& trail, std::set<std::string>& done,
          std::vector<std::string>& faults) {
  const auto seen = std::find(trail.begin(), trail.end(), node);
  if (seen != trail.end()) {
    std::string circle = node + ": circle: ";
    std::for_each(seen, trail.end(), [&circle](const std::string& step) { circle += step + " -> "; });
    faults.push_back(circle + node);
    return;
  }
  const auto next = graph.find(node);
  if (next == graph.end() || done.contains(node)) {
    return;
  }
  trail.push_back(node);
  for (const std::string& step : next->second) {
    Walk(graph, step, trail, done, faults);
  }
  trail.pop_back();
  done.insert(node);
}

void CheckCircles(const Graph& graph, std::vector<std::string>& faults) {
  std::set<std::string> done;
  for (const auto& [node, steps] : graph) {
    std::vector<std::string> trail;
    Walk(graph, node, trail, done, faults);
  }
}

void CheckSystem(const SourceFile& file, std::vector<std::string>& faults) {
  if (!StartsWithAny(file.path, kSystemHeaderFolders)) {
    for (const Include& include : IncludesOf(file)) {
      if (kSystemHeaders.contains(Lower(include.name))) {
        faults.push_back(Place(file.path, include.line) + "includes <" + include.name + ">, the system's own header");
      }
    }
  }
  if (StartsWithAny(file.path, kFoldersAboveThePlatform)) {
    static const std::regex kCondition(
        R"(^\s*#\s*(if|ifdef|ifndef|elif)\b.*\b(_WIN32|_WIN64|WIN32|__MINGW32__|__MINGW64__|__linux__|__unix__)\b)");
    std::size_t number = 0;
    for (const std::string& line : LinesOf(WithoutComments(file.text))) {
      ++number;
      if (std::regex_search(line, kCondition)) {
        faults.push_back(Place(file.path, number) + "asks the preprocessor for the system; the link decides that");
      }
    }
  }
}

// The end of the literal whose quote stands at `at`: the place of its closing quote, or of the end of its line.
std::size_t EndOfLiteral(std::string_view text, std::size_t at) {
  const char quote = text[at];
  std::size_t end = at + 1;
  while (end < text.size() && text[end] != quote && text[end] != '\n') {
    end += text[end] == '\\' ? 2U : 1U;
  }
  return std::min(end, text.size());
}

std::size_t EndOfRawLiteral(std::string_view text, std::size_t at) {
  const std::size_t open = text.find('(', at);
  if (open == std::string_view::npos) {
    return text.size();
  }
  std::string close(text.substr(at + 1, open - at - 1));
  close.insert(close.begin(), ')');
  close.push_back('"');
  const std::size_t end = text.find(close, open);
  return end == std::string_view::npos ? text.size() : end + close.size() - 1;
}

bool IsDigitSeparator(std::string_view text, std::size_t at) {
  return at > 0 && at + 1 < text.size() && std::isxdigit(static_cast<unsigned char>(text[at - 1])) != 0 &&
         std::isxdigit(static_cast<unsigned char>(text[at + 1])) != 0 &&
         (at + 2 >= text.size() || text[at + 2] != '\'');
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  if (stream.peek() != std::ifstream::traits_type::eof()) { // an empty file would mark the insertion as failed
    text << stream.rdbuf();
  }
  if (!stream.is_open() || !text) {
    throw std::runtime_error("cannot read " + path.string());
  }
  return text.str();
}

bool IsIncludeLine(std::string_view text, std::size_t at) {
  const std::size_t begin = text.rfind('\n', at) + 1; // the first line has no newline before it: npos + 1 is 0
  static const std::regex kStart(R"(^\s*#\s*include\s*$)");
  return std::regex_match(std::string(text.substr(begin, at - begin)), kStart);
}

} // namespace

std::string WithoutComments(std::string_view text) {
  std::string result(text);
  const auto blank = [&result](std::size_t begin, std::size_t end) {
    std::replace_if(
        result.begin() + static_cast<std::ptrdiff_t>(begin), result.begin() + static_cast<std::ptrdiff_t>(end),
        [](char letter) { return letter != '\n'; }, ' ');
  };
  std::size_t at = 0;
  while (at < text.size()) {
    const std::string_view rest = text.substr(at);
    if (rest.starts_with("//")) {
      const std::size_t end = std::min(text.find('\n', at), text.size());
      blank(at, end);
      at = end;
    } else if (rest.starts_with("/*")) {
      const std::size_t close = text.find("*/", at + 2);
      const std::size_t end = close == std::string_view::npos ? text.size() : close + 2;
      blank(at, end);
      at = end;
    } else if (rest.starts_with("R\"")) {
      const std::size_t end = EndOfRawLiteral(text, at + 1);
      blank(at + 2, end);
      at = end + 1;
    } else if ((text[at] == '"' && !IsIncludeLine(text, at)) || (text[at] == '\'' && !IsDigitSeparator(text, at))) {
      const std::size_t end = EndOfLiteral(text, at);
      blank(at + 1, end);
      at = end + 1;
    } else if (text[at] == '"') {
      at = EndOfLiteral(text, at) + 1;
    } else {
      ++at;
    }
  }
  return result;
}

std::vector<Edge> FindEdges(const std::vector<SourceFile>& files) {
  std::set<std::string> paths;
  for (const SourceFile& file : files) {
    paths.insert(file.path);
  }
  std::vector<Edge> edges;
  for (const SourceFile& file : files) {
    for (const Include& include : IncludesOf(file)) {
      const std::filesystem::path beside = std::filesystem::path(FolderOf(file.path)) / include.name;
      for (const std::filesystem::path& candidate : {beside, std::filesystem::path(include.name)}) {
        const std::string path = candidate.lexically_normal().generic_string();
        if (paths.contains(path)) {
          edges.push_back({file.path, path, include.line});
          break;
        }
      }
    }
  }
  return edges;
}

std::vector<std::string> FindFaults(const std::vector<SourceFile>& files) {
  std::vector<std::string> faults;
  for (const SourceFile& file : files) {
    CheckSystem(file, faults);
  }
  const std::vector<Edge> edges = FindEdges(files);
  CheckDirection(edges, faults);
  Graph ofFiles;
  Graph ofFolders;
  for (const Edge& edge : edges) {
    ofFiles[edge.from].insert(edge.to);
    const std::string from = FolderOf(edge.from);
    const std::string to = FolderOf(edge.to);
    if (from != to) {
      ofFolders[from].insert(to);
    }
  }
  CheckCircles(ofFiles, faults);
  CheckCircles(ofFolders, faults);
  return faults;
}

std::vector<SourceFile> ReadTree(const std::filesystem::path& root) {
  static const std::set<std::string, std::less<>> kEndings{".c", ".cc", ".cpp", ".h", ".hpp", ".inc"};
  std::vector<SourceFile> files;
  for (auto entry = std::filesystem::recursive_directory_iterator(root);
       entry != std::filesystem::recursive_directory_iterator(); ++entry) {
    const std::string name = entry->path().filename().string();
    if (entry->is_directory()) {
      if (name == "build" || name.starts_with('.')) {
        entry.disable_recursion_pending();
      }
    } else if (kEndings.contains(entry->path().extension().string())) {
      files.push_back({entry->path().lexically_relative(root).generic_string(), ReadFile(entry->path())});
    }
  }
  std::sort(files.begin(), files.end(),
            [](const SourceFile& left, const SourceFile& right) { return left.path < right.path; });
  return files;
}

} // namespace tree
