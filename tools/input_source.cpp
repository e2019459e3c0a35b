#include "input_source.h"

#include "http_stream.h"
#include "local_file.h"
#include "spool.h"

namespace qiro::k7m::tool {

std::shared_ptr<InputSource> OpenInput(const std::string& path, uint64_t spoolLimit) {
  if (path == "-") return SpoolStandardInput(spoolLimit);
  if (path.rfind("http://", 0) == 0 || path.rfind("https://", 0) == 0) return OpenHttp(path);
  return OpenLocalFile(path);
}

}  // namespace qiro::k7m::tool
