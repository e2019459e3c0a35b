#pragma once

#include "api/writer_frame.h"
#include "k7m/k7r.h"
#include "writer/k7r_writer.h"

namespace qiro::k7m::impl {

inline K7RWriter& Impl(QiroK7RWriter* handle) { return *reinterpret_cast<K7RWriter*>(handle); }
inline QiroK7RWriter* AsHandle(K7RWriter* writer) {
  return reinterpret_cast<QiroK7RWriter*>(writer);
}
/// The same writer for the functions of all writers; null for null.
inline QiroK7MWriter* AsWriter(QiroK7RWriter* handle) {
  return AsHandle(static_cast<Writer*>(reinterpret_cast<K7RWriter*>(handle)));
}

}  // namespace qiro::k7m::impl
