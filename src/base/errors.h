#pragma once

#include <exception>
#include <memory>
#include <string>

#include "k7m/errors.h"

namespace qiro::k7m {

/// The library's only exception. Every failure inside is one of these; the exported functions turn
/// it into its code.
class exception_t : public std::exception {
 public:
  struct implementation_t {
    QiroK7MError code;
  };

  /// Takes ownership of `implementation`.
  exception_t(implementation_t* implementation, const std::string& message);
  exception_t(const exception_t& other);
  exception_t& operator=(const exception_t& other) = delete;
  ~exception_t() override;

  QiroK7MError get_error() const noexcept { return implementation_->code; }
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  exception_t(std::unique_ptr<implementation_t> implementation, const std::string& message);

  std::string message_;
  std::unique_ptr<implementation_t> implementation_;
};

namespace impl {

/// Throws with the message "k7m error:<code>", followed by the place when `file` is not null.
[[noreturn]] void throw_exception(QiroK7MError code, const char* file, int line);
[[noreturn]] void throw_exception_with_message(QiroK7MError code, const char* message);

/// The library fails through this function and ThrowIf() alone.
[[noreturn]] void ThrowException(QiroK7MError code);

inline void ThrowIf(bool condition, QiroK7MError code) {
  if (condition) [[unlikely]] {
    ThrowException(code);
  }
}

}  // namespace impl
}  // namespace qiro::k7m
