/// @file json_text.h
/// What the tool knows of JSON where it builds none: its type, and its text. Who builds some
/// includes <nlohmann/json.hpp> as well.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace qiro::k7m::tool {

using Json = nlohmann::ordered_json;

/// The JSON text with an indent of 2 and a line end; bytes that are not UTF-8 are replaced.
std::string JsonText(const Json& json);

}  // namespace qiro::k7m::tool
