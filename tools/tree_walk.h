/// @file tree_walk.h
/// Walks over the boxes of a file, however broken it is.
#pragma once

#include <cstdint>
#include <optional>

#include "file_stream.h"
#include "tree_form.h"
#include "warnings.h"

namespace qiro::k7m::tool {

/// What became of a walk.
struct TreeResult {
  uint64_t boxCount = 0;
  uint64_t problemCount = 0;
  std::optional<TreeProblem> firstProblem;
};

/// Reports every box to `form`, from the top down. A box that cannot be read is reported as a
/// problem, and the walk goes on behind it where its end is known. Throws only for what the system
/// refuses and for a refused warning.
/// @param tableLimit  how many entries of a table, and bytes of a byte field, are shown
TreeResult WalkTree(FileStream& file, Warnings& warnings, uint64_t tableLimit, TreeForm& form);

}  // namespace qiro::k7m::tool
