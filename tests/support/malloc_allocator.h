/// @file malloc_allocator.h
/// Keeps the bookkeeping of the test support out of the counts of the global operators.
#ifndef K7M_TESTS_SUPPORT_MALLOC_ALLOCATOR_H
#define K7M_TESTS_SUPPORT_MALLOC_ALLOCATOR_H

#include <cstddef>
#include <cstdlib>

namespace k7mtest {

/// Takes its memory from malloc; running out of it ends the test program.
template <class T>
struct MallocAllocator {
  using value_type = T;
  MallocAllocator() = default;
  template <class U>
  MallocAllocator(const MallocAllocator<U>&) {}  // NOLINT: rebinding is implicit
  T* allocate(size_t count) {
    void* block = std::malloc(count * sizeof(T));
    if (block == nullptr) std::abort();
    return static_cast<T*>(block);
  }
  void deallocate(T* block, size_t) { std::free(block); }
  friend bool operator==(const MallocAllocator&, const MallocAllocator&) { return true; }
};

}  // namespace k7mtest

#endif
