#include "tests/fuzz/fuzz.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

// Runs every file of the named folders, and every named file, through one fuzzer: the kept inputs as a test that needs
// no fuzzing engine. Fails when there is none.
int main(int argc, char** argv) {
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) {
      files.emplace_back(argv[i]);
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  for (const auto& path : files) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file) {
      std::fprintf(stderr, "%s can't be read\n", path.c_str());
      return 1;
    }
    std::printf("%s\n", path.c_str()); // the last one is the one that ends the program
    std::fflush(stdout);
    // Exactly as large as the input, so that a sanitizer sees a read behind it.
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  std::printf("%zu inputs held\n", files.size());
  return files.empty() ? 1 : 0;
}
