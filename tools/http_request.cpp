#include "http_request.h"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <new>
#include <string_view>
#include <utility>

namespace qiro::k7m::tool {
namespace {

constexpr long kOk = 200;
constexpr long kPartialContent = 206;
constexpr long kRangeNotSatisfiable = 416;
constexpr long kMaxRedirections = 10;
constexpr long kConnectSeconds = 30;
constexpr long kSilentSeconds = 60;

constexpr const char* kNoRanges =
    "the server does not send parts of the file, and k7m does not fetch all of it (try: curl URL | "
    "k7m COMMAND -)";

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())) != 0) {
    text.remove_prefix(1);
  }
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())) != 0) {
    text.remove_suffix(1);
  }
  return text;
}

bool IsSameName(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char x, unsigned char y) {
    return std::tolower(x) == std::tolower(y);
  });
}

// Takes a number off the begin of the text.
std::optional<uint64_t> TakeNumber(std::string_view* text) {
  uint64_t number = 0;
  const auto [end, problem] = std::from_chars(text->data(), text->data() + text->size(), number);
  if (problem != std::errc()) return std::nullopt;
  text->remove_prefix(static_cast<size_t>(end - text->data()));
  return number;
}

bool TakeText(std::string_view* text, std::string_view expected) {
  if (text->substr(0, expected.size()) != expected) return false;
  text->remove_prefix(expected.size());
  return true;
}

struct ContentRange {
  std::optional<uint64_t> begin;  // None in "bytes */1234".
  uint64_t last = 0;
  uint64_t length = 0;
};

// "bytes 0-99/1234"
std::optional<ContentRange> ParseContentRange(std::string_view text) {
  ContentRange range;
  if (!TakeText(&text, "bytes ")) return std::nullopt;
  if (!TakeText(&text, "*")) {
    range.begin = TakeNumber(&text);
    if (!range.begin || !TakeText(&text, "-")) return std::nullopt;
    const auto last = TakeNumber(&text);
    if (!last) return std::nullopt;
    range.last = *last;
  }
  if (!TakeText(&text, "/")) return std::nullopt;
  const auto length = TakeNumber(&text);
  if (!length || !text.empty()) return std::nullopt;
  range.length = *length;
  return range;
}

std::string StatusText(long status) {
  const std::string number = " (status " + std::to_string(status) + ")";
  switch (status) {
    case 401:
    case 403:
      return "the server refuses access" + number;
    case 404:
    case 410:
      return "the server has no such file" + number;
    case kRangeNotSatisfiable:
      return "the file on the server has become shorter while it was read" + number;
    default:
      return "the server does not deliver the file" + number;
  }
}

}  // namespace

// A request while it is under way.
struct HttpConnection::Exchange {
  CURL* handle = nullptr;
  uint64_t wanted = 0;
  std::string contentRange;
  HttpAnswer answer;

  long Status() const {
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    return status;
  }
  void TakeHeader(std::string_view line);
  bool TakeBytes(const char* bytes, size_t size);
  void Conclude(CURLcode result, const char* text, uint64_t begin);
  void ConcludeRange(uint64_t begin);
};

void HttpConnection::Exchange::TakeHeader(std::string_view line) {
  if (line.substr(0, 5) == "HTTP/") {  // Another answer, after a redirection.
    contentRange.clear();
    answer.file = {};
    return;
  }
  const size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  const std::string_view name = line.substr(0, colon);
  const std::string value(Trimmed(line.substr(colon + 1)));
  if (IsSameName(name, "Content-Range")) contentRange = value;
  if (IsSameName(name, "ETag")) answer.file.tag = value;
  if (IsSameName(name, "Last-Modified")) answer.file.modified = value;
}

// False ends the transfer: nobody wants what comes.
bool HttpConnection::Exchange::TakeBytes(const char* bytes, size_t size) {
  if (Status() != kPartialContent || size > wanted - answer.bytes.size()) return false;
  answer.bytes.insert(answer.bytes.end(), bytes, bytes + size);
  return true;
}

void HttpConnection::Exchange::Conclude(CURLcode result, const char* text, uint64_t begin) {
  const long status = Status();
  const bool isRefused = result == CURLE_WRITE_ERROR;
  if (result != CURLE_OK && !isRefused) {
    const bool isLost =
        result == CURLE_PARTIAL_FILE || result == CURLE_RECV_ERROR || result == CURLE_GOT_NOTHING;
    answer.problem = isLost ? "the connection to the server was lost: " : "";
    answer.problem += *text != '\0' ? text : curl_easy_strerror(result);
  } else if (status == kPartialContent) {
    ConcludeRange(begin);
    if (isRefused) answer.problem = "the server sends more than it was asked for";
  } else if (status == kRangeNotSatisfiable && begin == 0 && contentRange == "bytes */0") {
    answer.bytes.clear();  // An empty file.
  } else if (status == kOk) {
    curl_off_t length = -1;
    curl_easy_getinfo(handle, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    if (length != 0 || begin != 0) answer.problem = kNoRanges;
  } else {
    answer.problem = StatusText(status);
  }
}

void HttpConnection::Exchange::ConcludeRange(uint64_t begin) {
  const auto range = ParseContentRange(contentRange);
  if (!range || range->begin != begin || range->last < begin ||
      range->last - begin + 1 != answer.bytes.size()) {
    answer.problem = "the server sends another part of the file than it was asked for (\"" +
                     contentRange + "\")";
    return;
  }
  answer.file.length = range->length;
}

HttpConnection::HttpConnection(std::string url) : url_(std::move(url)), handle_(curl_easy_init()) {
  if (handle_ == nullptr) throw std::bad_alloc();
  curl_easy_setopt(handle_, CURLOPT_URL, url_.c_str());
  curl_easy_setopt(handle_, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle_, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle_, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(handle_, CURLOPT_MAXREDIRS, kMaxRedirections);
  curl_easy_setopt(handle_, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle_, CURLOPT_CONNECTTIMEOUT, kConnectSeconds);
  curl_easy_setopt(handle_, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(handle_, CURLOPT_LOW_SPEED_TIME, kSilentSeconds);
  curl_easy_setopt(handle_, CURLOPT_USERAGENT, "k7m");
  const char* const authorities = std::getenv("SSL_CERT_FILE");
  if (authorities != nullptr && *authorities != '\0') {
    curl_easy_setopt(handle_, CURLOPT_CAINFO, authorities);
  }
  curl_easy_setopt(
      handle_, CURLOPT_HEADERFUNCTION, +[](char* line, size_t one, size_t size, void* exchange) {
        static_cast<Exchange*>(exchange)->TakeHeader({line, one * size});
        return one * size;
      });
  curl_easy_setopt(
      handle_, CURLOPT_WRITEFUNCTION,
      +[](char* bytes, size_t one, size_t size, void* exchange) -> size_t {
        const size_t count = one * size;
        return static_cast<Exchange*>(exchange)->TakeBytes(bytes, count) ? count : 0;
      });
}

HttpConnection::~HttpConnection() { curl_easy_cleanup(handle_); }

HttpAnswer HttpConnection::Fetch(uint64_t begin, uint64_t end) {
  Exchange exchange;
  exchange.handle = handle_;
  exchange.wanted = end - begin;
  exchange.answer.bytes.reserve(end - begin);
  const std::string range = std::to_string(begin) + "-" + std::to_string(end - 1);
  std::array<char, CURL_ERROR_SIZE> text{};
  curl_easy_setopt(handle_, CURLOPT_RANGE, range.c_str());
  curl_easy_setopt(handle_, CURLOPT_ERRORBUFFER, text.data());
  curl_easy_setopt(handle_, CURLOPT_HEADERDATA, &exchange);
  curl_easy_setopt(handle_, CURLOPT_WRITEDATA, &exchange);
  const CURLcode result = curl_easy_perform(handle_);
  exchange.Conclude(result, text.data(), begin);
  curl_easy_setopt(handle_, CURLOPT_ERRORBUFFER, nullptr);
  return std::move(exchange.answer);
}

}  // namespace qiro::k7m::tool
