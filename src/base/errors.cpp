#include "base/errors.h"

#include <sstream>
#include <utility>

namespace qiro::k7m {

// Owns the implementation before the message is copied, which may fail.
exception_t::exception_t(implementation_t* implementation, const std::string& message)
    : exception_t(std::unique_ptr<implementation_t>(implementation), message) {}

exception_t::exception_t(std::unique_ptr<implementation_t> implementation,
                         const std::string& message)
    : message_(message), implementation_(std::move(implementation)) {}

exception_t::exception_t(const exception_t& other)
    : std::exception(other),
      message_(other.message_),
      implementation_(std::make_unique<implementation_t>(*other.implementation_)) {}

exception_t::~exception_t() = default;

namespace impl {

void throw_exception(QiroK7MError code, const char* file, int line) {
  std::ostringstream message;
  message << "k7m error:" << code;
  if (file != nullptr) {
    message << " file:'" << file << "' line:" << line << "'";
  }
  throw_exception_with_message(code, message.str().c_str());
}

void throw_exception_with_message(QiroK7MError code, const char* message) {
  auto implementation = std::make_unique<exception_t::implementation_t>();
  implementation->code = code;
  const std::string text(message);
  throw exception_t(implementation.release(), text);
}

void ThrowException(QiroK7MError code) { throw_exception(code, nullptr, 0); }

}  // namespace impl
}  // namespace qiro::k7m
