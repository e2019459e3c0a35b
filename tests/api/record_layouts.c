#include <assert.h>
#include <stddef.h>

#include "k7m/k7m.h"

#define RECORD(type, bytes) static_assert(sizeof(type) == (bytes), #type);
#define FIELD(type, field, bytes) static_assert(offsetof(type, field) == (bytes), #type "." #field);
#include "record_layouts.inc"
