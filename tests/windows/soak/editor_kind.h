#pragma once

#include <random>
#include <string>

namespace soak {

/// How the editors behave that are started from now on.
struct EditorKind {
  std::string zoo;    // VEXEL_EDITOR_ZOO
  std::string answer; // VEXEL_EDITOR_ANSWER
};

/// An editor that does as it should.
EditorKind CalmEditor();

/// Mostly calm ones; some hang, flood, die in each of the ways that there are, or leave.
EditorKind RandomEditor(std::mt19937& random);

} // namespace soak
