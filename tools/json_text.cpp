#include "json_text.h"

#include <nlohmann/json.hpp>

namespace qiro::k7m::tool {

std::string JsonText(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace qiro::k7m::tool
