#include "tools/vexelctl/script.h"

#include <gtest/gtest.h>

namespace {

using namespace vexelctl;

Command Read(const std::string& line) {
  Command command;
  std::string error;
  EXPECT_TRUE(ReadCommand(line, &command, &error)) << line << ": " << error;
  return command;
}

std::string ErrorOf(const std::string& line) {
  Command command;
  std::string error;
  EXPECT_FALSE(ReadCommand(line, &command, &error)) << line;
  return error;
}

TEST(Script, EachCommandIsRead) {
  const Command move = Read("move -1 2 800 600");
  EXPECT_EQ(move.kind, CommandKind::kMove);
  EXPECT_EQ(move.numbers, (std::vector<std::int32_t>{-1, 2, 800, 600}));
  EXPECT_FALSE(move.id.has_value());
  EXPECT_TRUE(Read("fullscreen").isOn);
  EXPECT_FALSE(Read("fullscreen off").isOn);
  EXPECT_TRUE(Read("theme dark").isOn);
  EXPECT_FALSE(Read("theme light").isOn);
  EXPECT_EQ(Read("operate 3").numbers, std::vector<std::int32_t>{3});
  EXPECT_EQ(Read("command 4").kind, CommandKind::kCommand);
  EXPECT_FALSE(Read("close").isOn);
  EXPECT_TRUE(Read("close all").isOn);
  EXPECT_EQ(Read("isclosed").kind, CommandKind::kIsClosed);
  EXPECT_EQ(Read("wait 50").kind, CommandKind::kWait);
  EXPECT_EQ(Read("quit").kind, CommandKind::kQuit);
  EXPECT_EQ(Read("open C:\\my pictures\\a.png").text, "C:\\my pictures\\a.png");
  EXPECT_EQ(Read("replace \"a b.png\"").text, "a b.png");
  EXPECT_EQ(Read("expect \"edit\"").text, "\"edit\"");
}

TEST(Script, ATargetStandsInFront) {
  EXPECT_EQ(Read("@3 close").id, 3);
  EXPECT_TRUE(Read("  @all   fullscreen off\r").isForAll);
  EXPECT_TRUE(Read("@all expect x").isForAll);
  EXPECT_EQ(Read("  @all   fullscreen off\r").call, "fullscreen off");
  EXPECT_EQ(Read("operate 5").call, "operate 5");
}

TEST(Script, WhatGoesToNoIdTakesNoTarget) {
  EXPECT_EQ(ErrorOf("@1 theme dark"), "'theme' goes to no id: write it without @");
  EXPECT_EQ(ErrorOf("@1 open a.png"), "'open' goes to no id: write it without @");
  EXPECT_EQ(ErrorOf("@9 wait 5"), "'wait' goes to no id: write it without @");
  EXPECT_EQ(ErrorOf("@all quit"), "'quit' goes to no id: write it without @");
}

TEST(Script, EmptyLinesAndCommentsAreNothing) {
  EXPECT_EQ(Read("").kind, CommandKind::kNothing);
  EXPECT_EQ(Read(" \t").kind, CommandKind::kNothing);
  EXPECT_EQ(Read("# close").kind, CommandKind::kNothing);
  EXPECT_EQ(Read("\xEF\xBB\xBF# a script").kind, CommandKind::kNothing);
}

TEST(Script, WhatMakesNoSenseGetsASentence) {
  EXPECT_EQ(ErrorOf("frob"), "'frob' is no command; 'help' lists them");
  EXPECT_EQ(ErrorOf("move 1 2 3"), "write it as 'move X Y W H'");
  EXPECT_EQ(ErrorOf("move 1 2 3 x"), "write it as 'move X Y W H'");
  EXPECT_EQ(ErrorOf("operate 99999999999"), "write it as 'operate CODE'");
  EXPECT_EQ(ErrorOf("wait -1"), "write it as 'wait MS'");
  EXPECT_EQ(ErrorOf("theme blue"), "write it as 'theme dark|light'");
  EXPECT_EQ(ErrorOf("open"), "write it as 'open PICTURE'");
  EXPECT_EQ(ErrorOf("close it"), "write it as 'close [all]'");
  EXPECT_EQ(ErrorOf("@x close"), "'@x' is no id: write @ and a number, or @all");
  EXPECT_EQ(ErrorOf("@0 close"), "'@0' is no id: write @ and a number, or @all");
  EXPECT_EQ(ErrorOf("@1"), "a command is missing behind the id");
}

} // namespace
