#include "tests/windows/soak/usage.h"

#include "tests/windows/host/wire.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace soak {
namespace {

std::string Each(std::int64_t before, std::int64_t after, std::int64_t count) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.2f", static_cast<double>(after - before) / static_cast<double>(count));
  return text.data();
}

} // namespace

std::int64_t Usage::AllHandles() const {
  std::int64_t count = 0;
  for (const auto& [type, some] : handles) {
    count += some;
  }
  return count;
}

std::int64_t Usage::OwnHandles() const {
  std::int64_t count = AllHandles();
  for (const char* const type : {"Process", "Token"}) {
    const auto found = handles.find(type);
    count -= found == handles.end() ? 0 : found->second;
  }
  return count;
}

Usage AskUsage(sdktest::HostProcess& host) {
  const std::vector<std::string> words = wire::Words(host.Do("usage"));
  Usage usage;
  if (words.size() < 5 || words[0] != "value") {
    ADD_FAILURE() << "the host does not say what it holds";
    return usage;
  }
  std::array<std::int64_t*, 4> numbers{&usage.heapBytes, &usage.heapBlocks, &usage.privateBytes, &usage.threads};
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    *numbers[i] = std::strtoll(words[i + 1].c_str(), nullptr, 10);
  }
  for (std::size_t i = 5; i < words.size(); ++i) {
    const std::size_t equals = words[i].find('=');
    usage.handles[words[i].substr(0, equals)] = std::strtoll(words[i].c_str() + equals + 1, nullptr, 10);
  }
  return usage;
}

std::string Describe(const Usage& usage) {
  std::string text = "heap " + std::to_string(usage.heapBytes) + " B in " + std::to_string(usage.heapBlocks) +
                     " blocks, private " + std::to_string(usage.privateBytes / 1024) + " KiB, " +
                     std::to_string(usage.threads) + " threads, " + std::to_string(usage.AllHandles()) + " handles (";
  const char* separator = "";
  for (const auto& [type, count] : usage.handles) {
    text += separator + type + " " + std::to_string(count);
    separator = ", ";
  }
  return text + ")";
}

std::string DescribeGrowth(const Usage& before, const Usage& after, std::int64_t count) {
  std::string text = "heap " + Each(before.heapBytes, after.heapBytes, count) + " B in " +
                     Each(before.heapBlocks, after.heapBlocks, count) + " blocks, private " +
                     Each(before.privateBytes, after.privateBytes, count) + " B, threads " +
                     Each(before.threads, after.threads, count) + ", handles " +
                     Each(before.AllHandles(), after.AllHandles(), count);
  for (const auto& [type, some] : after.handles) {
    const auto found = before.handles.find(type);
    const std::int64_t earlier = found == before.handles.end() ? 0 : found->second;
    if (earlier != some) {
      text += ", " + type + " " + Each(earlier, some, count);
    }
  }
  return text;
}

} // namespace soak
