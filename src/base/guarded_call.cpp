#include "base/guarded_call.h"

#include <new>

namespace qiro::k7m::impl {

QiroK7MError ExceptionToError() noexcept {
  try {
    throw;
  } catch (const exception_t& error) {
    return error.get_error();
  } catch (const std::bad_alloc&) {
    return kQiroK7MErrorOutOfMemory;
  } catch (const std::exception&) {
    return kQiroK7MErrorStdException;
  } catch (...) {
    return kQiroK7MErrorUnknown;
  }
}

}  // namespace qiro::k7m::impl
