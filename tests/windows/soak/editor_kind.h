#pragma once

#include <random>
#include <string>

namespace soak {

/// How the editors behave that are started from now on. An editor may start while the variables are being set, so they are
/// set in this order: it then tells the answer that it gives, or none.
struct EditorKind {
  std::string silentZoo; // VEXEL_EDITOR_ZOO without the answer
  std::string answer;    // VEXEL_EDITOR_ANSWER
  std::string zoo;       // VEXEL_EDITOR_ZOO
};

/// An editor that does as it should.
EditorKind CalmEditor();

/// Mostly calm ones; some hang, flood, die in each of the ways that there are, or leave.
EditorKind RandomEditor(std::mt19937& random);

} // namespace soak
