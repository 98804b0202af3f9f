#include "tests/windows/soak/editor_kind.h"

#include <array>
#include <cstddef>

namespace soak {
namespace {

struct Weighted {
  int weight;
  const char* zoo;
};

constexpr std::array<Weighted, 12> kKinds{{
    {46, ""},
    {12, "flood=60"},
    {6, "slow=150"},
    {5, "hang"},
    {5, "die_on_open"},
    {3, "die_at_start"},
    {5, "die_mid_message"},
    {5, "crash_after_open=300"},
    {5, "exit_after_open=200"},
    {3, "never_serve"},
    {3, "flood=60;crash_after_open=100"},
    {2, "slow=50;flood=60;exit_after_open=50"},
}};

/// What an editor says after an open: how it answers its user's question, how it behaves, and texts that are no events.
std::string Events(const std::string& answer, const std::string& zoo) {
  const std::string label = "flood=";
  const std::size_t flood = zoo.find(label);
  const std::string count = flood == std::string::npos ? "0" : zoo.substr(flood + label.size());
  return R"(events={"type":"soak","param":")" + answer + R"(","calm":)" + (zoo.empty() ? "true" : "false") +
         R"(,"flood":)" + count.substr(0, count.find(';')) + R"(,"process_id":%PID%}||no json||{"type":7})";
}

EditorKind Kind(const std::string& answer, const std::string& zoo) {
  const std::string more = zoo.empty() ? "" : ";" + zoo;
  return {Events("", zoo) + more, answer, Events(answer, zoo) + more};
}

} // namespace

EditorKind CalmEditor() { return Kind("discard", ""); }

EditorKind RandomEditor(std::mt19937& random) {
  int sum = 0;
  for (const Weighted& kind : kKinds) {
    sum += kind.weight;
  }
  int left = static_cast<int>(random() % static_cast<unsigned>(sum));
  std::size_t at = 0;
  while (left >= kKinds[at].weight) {
    left -= kKinds[at].weight;
    ++at;
  }
  constexpr std::array<const char*, 3> kAnswers{"save", "discard", "cancel"};
  return Kind(kAnswers[random() % kAnswers.size()], kKinds[at].zoo);
}

} // namespace soak
