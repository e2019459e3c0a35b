#include "http_stream.h"

#include <algorithm>
#include <cstring>
#include <list>

#include "failure.h"
#include "http_request.h"

namespace qiro::k7m::tool {
namespace {

// The first read somewhere gets so much; reading on gets more each time, so that a long movie box
// takes few requests and a jump wastes little.
constexpr uint64_t kFirstSize = uint64_t{128} << 10;
constexpr uint64_t kGrowth = 8;
constexpr uint64_t kLargestSize = uint64_t{8} << 20;
constexpr uint64_t kMemoryLimit = uint64_t{32} << 20;

class HttpSource : public InputSource {
 public:
  explicit HttpSource(const std::string& url) : InputSource(url), connection_(url) {
    HttpAnswer answer = connection_.Fetch(0, kFirstSize);
    if (!answer.problem.empty()) throw FileFailure(url, answer.problem);
    file_ = answer.file;
    Keep(0, std::move(answer.bytes));
  }

  bool Read(uint8_t* target, uint64_t byteCount, uint64_t position, uint64_t* bytesRead) override {
    *bytesRead = 0;
    while (byteCount > 0 && position < file_.length) {
      const Piece* piece = Find(position);
      if (piece == nullptr) piece = Fetch(position, byteCount);
      if (piece == nullptr) return false;
      const uint64_t count = std::min(byteCount, piece->End() - position);
      std::memcpy(target, piece->bytes.data() + (position - piece->begin), count);
      target += count;
      byteCount -= count;
      position += count;
      *bytesRead += count;
    }
    return true;
  }

  bool Measure(uint64_t* length) override {
    *length = file_.length;
    return true;
  }

  bool IsRemote() const override { return true; }

 private:
  // A part of the file that is in memory.
  struct Piece {
    uint64_t begin;
    std::vector<uint8_t> bytes;

    uint64_t End() const { return begin + bytes.size(); }
  };

  // The piece that holds this byte, or null. It becomes the one that was used last.
  const Piece* Find(uint64_t position) {
    for (auto piece = pieces_.begin(); piece != pieces_.end(); ++piece) {
      if (position < piece->begin || position >= piece->End()) continue;
      pieces_.splice(pieces_.begin(), pieces_, piece);
      return &pieces_.front();
    }
    return nullptr;
  }

  // How much is worth to be had from here on.
  uint64_t SizeFrom(uint64_t position) const {
    for (const Piece& piece : pieces_) {
      if (position >= piece.End() && position - piece.End() <= piece.bytes.size()) {
        return std::clamp(kGrowth * piece.bytes.size(), kFirstSize, kLargestSize);
      }
    }
    return kFirstSize;
  }

  const Piece* Fetch(uint64_t position, uint64_t wanted) {
    const uint64_t size = std::clamp(wanted, SizeFrom(position), kLargestSize);
    uint64_t end = position + std::min(size, file_.length - position);
    for (const Piece& piece : pieces_) {  // What is there is not fetched again.
      if (piece.begin > position) end = std::min(end, piece.begin);
    }
    HttpAnswer answer = connection_.Fetch(position, end);
    if (answer.problem.empty() && answer.file != file_) {
      answer.problem = "the file on the server has changed while it was read";
    }
    if (!answer.problem.empty()) {
      Fail(answer.problem);
      return nullptr;
    }
    return Keep(position, std::move(answer.bytes));
  }

  const Piece* Keep(uint64_t position, std::vector<uint8_t> bytes) {
    keptSize_ += bytes.size();
    pieces_.push_front({position, std::move(bytes)});
    while (keptSize_ > kMemoryLimit) {
      keptSize_ -= pieces_.back().bytes.size();
      pieces_.pop_back();
    }
    return &pieces_.front();
  }

  HttpConnection connection_;
  HttpFile file_;
  std::list<Piece> pieces_;  // The one that was used last stands first.
  uint64_t keptSize_ = 0;
};

}  // namespace

std::shared_ptr<InputSource> OpenHttp(const std::string& url) {
  return std::make_shared<HttpSource>(url);
}

}  // namespace qiro::k7m::tool
