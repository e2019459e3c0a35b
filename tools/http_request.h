/// @file http_request.h
/// One range of a file on a web server.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qiro::k7m::tool {

/// What a server says about a file with each range. Two answers about the same file are equal.
struct HttpFile {
  uint64_t length = 0;
  std::string tag;       ///< ETag; empty when there is none.
  std::string modified;  ///< Last-Modified; empty when there is none.

  bool operator==(const HttpFile&) const = default;
};

/// What came of a request.
struct HttpAnswer {
  std::string problem;  ///< Empty: `file` and `bytes` are good.
  HttpFile file;
  std::vector<uint8_t> bytes;  ///< From the begin of the range on; perhaps fewer than wanted.
};

/// A connection to a server, kept from request to request.
class HttpConnection {
 public:
  explicit HttpConnection(std::string url);
  ~HttpConnection();
  HttpConnection(const HttpConnection&) = delete;
  HttpConnection& operator=(const HttpConnection&) = delete;

  /// Asks for the bytes from `begin` up to, not including, `end`. Of an empty file there are none.
  HttpAnswer Fetch(uint64_t begin, uint64_t end);

 private:
  struct Exchange;

  std::string url_;
  void* handle_;  // Of libcurl.
};

}  // namespace qiro::k7m::tool
