// In place of http_stream.cpp where there is no libcurl.
#include "failure.h"
#include "http_stream.h"

namespace qiro::k7m::tool {

std::shared_ptr<InputSource> OpenHttp(const std::string& url) {
  throw FileFailure(url, "this k7m was built without http (try: curl URL | k7m COMMAND -)");
}

}  // namespace qiro::k7m::tool
