#pragma once

#include "k7m/errors.h"

namespace qiro::k7m::impl {

/// The name of a code as it stands in the public header; "unknown code" for any other number.
const char* ErrorName(QiroK7MError code);
/// A sentence about the code; a fixed one for any other number.
const char* ErrorText(QiroK7MError code);

}  // namespace qiro::k7m::impl
