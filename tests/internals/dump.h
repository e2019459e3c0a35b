/// @file dump.h
/// The fields that a box reports, as one line of text.
#ifndef K7M_TESTS_INTERNALS_DUMP_H
#define K7M_TESTS_INTERNALS_DUMP_H

#include <sstream>
#include <string>

#include "boxes/box.h"

namespace k7mtest {

class DumpSink : public qiro::k7m::impl::FieldSink {
 public:
  void Number(const char* name, uint64_t value) override { Put(name) << value; }
  void SignedNumber(const char* name, int64_t value) override { Put(name) << value; }
  void Real(const char* name, float value) override { Put(name) << value; }
  void Code(const char* name, uint32_t fourCc) override {
    Put(name) << '\'';
    for (int shift = 24; shift >= 0; shift -= 8) text_ << static_cast<char>(fourCc >> shift);
    text_ << '\'';
  }
  void Date(const char* name, const QiroK7MDateTime& value) override {
    Put(name) << value.year << '-' << int{value.month} << '-' << int{value.day} << 'T'
              << int{value.hour} << ':' << int{value.minute} << ':' << int{value.second};
  }
  void Bytes(const char* name, std::span<const uint8_t> value) override {
    static const char kDigits[] = "0123456789abcdef";
    Put(name);
    for (const uint8_t byte : value) text_ << kDigits[byte >> 4] << kDigits[byte & 15];
  }
  uint64_t BeginTable(const char* name, uint64_t count) override {
    Put(name) << '[' << count << ']';
    return 3;  // More are not wanted, to see that this is heeded.
  }
  void BeginEntry() override { text_ << " {"; }
  void EndEntry() override { text_ << " }"; }
  void EndTable() override { text_ << " ;"; }

  std::string Text() const {
    const std::string text = text_.str();
    return text.empty() ? text : text.substr(1);
  }

 private:
  std::ostream& Put(const char* name) { return text_ << ' ' << name << '='; }

  std::ostringstream text_;
};

inline std::string Dump(qiro::k7m::impl::Box& box) {
  DumpSink sink;
  box.Describe(sink);
  return sink.Text();
}

}  // namespace k7mtest

#endif
