/// @file tree_form.h
/// The two forms of a box tree. Both are written as the walk goes on: no tree is ever gathered.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "json_text.h"
#include "output.h"

namespace qiro::k7m::tool {

/// What is known from a box's header, and its version and flags if it has them.
struct BoxFacts {
  uint64_t offset = 0;
  uint64_t size = 0;
  uint32_t type = 0;
  std::optional<uint32_t> version;
  std::optional<uint32_t> flags;
};

/// Something that does not let the walk see everything.
struct TreeProblem {
  uint64_t offset = 0;
  std::string text;
};

/// Gets the events of a walk over the tree: for each box BeginBox(), then its children, then
/// EndBox(). A problem of a box comes between the two, one of a missing box in its place.
class TreeForm {
 public:
  virtual ~TreeForm() = default;
  virtual void BeginBox(const BoxFacts& facts, const Json& fields) = 0;
  virtual void EndBox() = 0;
  virtual void Problem(const TreeProblem& problem) = 0;
  /// Must be called once, behind everything else.
  virtual void End() = 0;
};

/// An indented list, or an array of nested objects.
std::unique_ptr<TreeForm> MakeTreeForm(bool asJson, Output& out);

}  // namespace qiro::k7m::tool
