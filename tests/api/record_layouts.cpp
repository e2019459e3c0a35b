#include <cstddef>
#include <type_traits>

#include "k7m/k7m.h"

#define RECORD(type, bytes)                              \
  static_assert(sizeof(type) == (bytes), #type);         \
  static_assert(std::is_standard_layout_v<type>, #type); \
  static_assert(std::is_trivially_copyable_v<type>, #type);
#define FIELD(type, field, bytes) static_assert(offsetof(type, field) == (bytes), #type "." #field);
#include "record_layouts.inc"
