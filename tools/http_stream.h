/// @file http_stream.h
/// A file on a web server as an input.
#pragma once

#include "input_source.h"

namespace qiro::k7m::tool {

/// Opens an http:// or https:// address. The file is fetched in ranges as it is read, at most 8 MiB
/// at once and more of it the longer it is read through; at most 32 MiB stay in memory. The file
/// must stay the same while it is open: another length, ETag or date is a failure. Throws a Failure
/// when the server cannot be asked, does not have the file or does not send ranges, and where the
/// program was built without libcurl.
std::shared_ptr<InputSource> OpenHttp(const std::string& url);

}  // namespace qiro::k7m::tool
