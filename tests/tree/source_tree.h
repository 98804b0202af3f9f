#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

// What the includes of a source tree must look like, as functions over texts so that bad trees can be made in a test.
namespace tree {

/// One source: its path from the root with forward slashes, and its text.
struct SourceFile {
  std::string path;
  std::string text;
};

/// One include of a source that names another source of the same tree.
struct Edge {
  std::string from;
  std::string to;
  std::size_t line; // of the directive, the first line is 1
};

/// `text` with every comment and every literal's inside turned into blanks. Lines keep their numbers, and the names in
/// include directives stay.
std::string WithoutComments(std::string_view text);

/// The includes among `files`. A name is looked up beside the including source first, then from the root; names found in
/// neither place belong to other libraries and are left out.
std::vector<Edge> FindEdges(const std::vector<SourceFile>& files);

/// Every breach of the rules, one sentence each, led by the path; empty when there is none:
/// - an include goes from a layer to itself or to a lower one, and never from a layer to a program or a test;
/// - the pipe library includes nothing but its own;
/// - no circle, between files or between folders;
/// - the system's own headers only at its door and in programs;
/// - no test of the operating system by the preprocessor above that door.
std::vector<std::string> FindFaults(const std::vector<SourceFile>& files);

/// Reads the C and C++ sources below `root`, in the order of their paths. Folders named "build" and folders that begin
/// with a dot are left out. Throws std::filesystem::filesystem_error or std::runtime_error when one cannot be read.
std::vector<SourceFile> ReadTree(const std::filesystem::path& root);

} // namespace tree
