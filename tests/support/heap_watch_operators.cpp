// Replaces the global operators new and delete. Link it into a test program that counts them.
#include <malloc.h>

#include <cstdlib>
#include <new>

#include "heap_watch.h"

namespace {

void* Obtain(size_t size, size_t alignment, bool isQuiet) {
  if (!k7mtest::internal::NoteAllocation(isQuiet)) return nullptr;
  void* block = nullptr;
  if (alignment <= alignof(std::max_align_t)) {
    block = std::malloc(size == 0 ? 1 : size);
  } else if (posix_memalign(&block, alignment, size == 0 ? 1 : size) != 0) {
    block = nullptr;
  }
  if (block != nullptr) k7mtest::internal::NoteBlock(malloc_usable_size(block));
  return block;
}

void* ObtainOrThrow(size_t size, size_t alignment) {
  void* block = Obtain(size, alignment, false);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void GiveBack(void* block) noexcept {
  if (block == nullptr) return;
  k7mtest::internal::NoteRelease(malloc_usable_size(block));
  std::free(block);
}

constexpr size_t kUsual = alignof(std::max_align_t);

}  // namespace

void* operator new(size_t size) { return ObtainOrThrow(size, kUsual); }
void* operator new[](size_t size) { return ObtainOrThrow(size, kUsual); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return Obtain(size, kUsual, true);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return Obtain(size, kUsual, true);
}
void* operator new(size_t size, std::align_val_t alignment) {
  return ObtainOrThrow(size, static_cast<size_t>(alignment));
}
void* operator new[](size_t size, std::align_val_t alignment) {
  return ObtainOrThrow(size, static_cast<size_t>(alignment));
}
void operator delete(void* block) noexcept { GiveBack(block); }
void operator delete[](void* block) noexcept { GiveBack(block); }
void operator delete(void* block, size_t) noexcept { GiveBack(block); }
void operator delete[](void* block, size_t) noexcept { GiveBack(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { GiveBack(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { GiveBack(block); }
void operator delete(void* block, std::align_val_t) noexcept { GiveBack(block); }
void operator delete[](void* block, std::align_val_t) noexcept { GiveBack(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { GiveBack(block); }
void operator delete[](void* block, size_t, std::align_val_t) noexcept { GiveBack(block); }
