#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <vector>

#include "k7m/allocator.h"

namespace qiro::k7m::impl {

/// One block of `byteCount` bytes from the client, or from the global operator new when the client
/// gave no callback. A null result of the callback is treated as exhausted memory.
inline void* AllocateThrough(const QiroK7MAllocatorCallBacks* callBacks, size_t byteCount) {
  if (callBacks == nullptr || callBacks->allocate == nullptr) {
    return ::operator new(byteCount);
  }
  void* block = callBacks->allocate(callBacks->clientData, byteCount);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

inline void ReleaseThrough(const QiroK7MAllocatorCallBacks* callBacks, void* block) {
  if (callBacks == nullptr || callBacks->release == nullptr) {
    ::operator delete(block);
  } else if (block != nullptr) {
    callBacks->release(callBacks->clientData, block);
  }
}

/// Base of every object that lives in the client's memory. It remembers the callbacks that it was
/// made with, and `delete` gives the memory back through them.
class K7MBase {
 public:
  /// `allocator` may be null: the global operators are used.
  explicit K7MBase(const QiroK7MAllocatorCallBacks* allocator) {
    if (allocator != nullptr) {
      allocator_.clientData = allocator->clientData;
      allocator_.allocate = allocator->allocate;
      allocator_.release = allocator->release;
    }
  }
  K7MBase(const K7MBase&) = delete;
  K7MBase& operator=(const K7MBase&) = delete;
  virtual ~K7MBase() = default;

  const QiroK7MAllocatorCallBacks* GetAllocator() const { return &allocator_; }

  static void* operator new(size_t size, const QiroK7MAllocatorCallBacks* allocator) {
    return AllocateThrough(allocator, size);
  }
  /// Used when a constructor throws.
  static void operator delete(void* block, const QiroK7MAllocatorCallBacks* allocator) {
    ReleaseThrough(allocator, block);
  }
  /// The ordinary form. It destroys the object itself, because the callbacks are a part of it.
  static void operator delete(K7MBase* object, std::destroying_delete_t) {
    const QiroK7MAllocatorCallBacks allocator = object->allocator_;
    void* block = dynamic_cast<void*>(object);
    object->~K7MBase();
    ReleaseThrough(&allocator, block);
  }

 private:
  QiroK7MAllocatorCallBacks allocator_;
};

/// Standard allocator over the client's callbacks, for the growable tables.
template <class T>
class K7MAllocator {
 public:
  using value_type = T;

  K7MAllocator() = default;
  /// `callBacks` may be null: the global operators are used.
  explicit K7MAllocator(const QiroK7MAllocatorCallBacks* callBacks) {
    if (callBacks != nullptr) {
      callBacks_ = *callBacks;
    }
  }
  template <class U>
  K7MAllocator(const K7MAllocator<U>& other)
      : callBacks_(other.CallBacks()) {}  // NOLINT(google-explicit-constructor)

  T* allocate(size_t count) {
    if (count > std::numeric_limits<size_t>::max() / sizeof(T)) {
      throw std::bad_alloc();
    }
    return static_cast<T*>(AllocateThrough(&callBacks_, count * sizeof(T)));
  }
  void deallocate(T* block, size_t) { ReleaseThrough(&callBacks_, block); }

  const QiroK7MAllocatorCallBacks& CallBacks() const { return callBacks_; }

  template <class U>
  bool operator==(const K7MAllocator<U>& other) const {
    return callBacks_.clientData == other.CallBacks().clientData &&
           callBacks_.allocate == other.CallBacks().allocate &&
           callBacks_.release == other.CallBacks().release;
  }

 private:
  QiroK7MAllocatorCallBacks callBacks_;
};

/// A growable table in the client's memory.
template <class T>
using K7MVector = std::vector<T, K7MAllocator<T>>;

/// Owner of a temporary buffer on the ordinary heap. The bytes start uninitialised and are touched
/// only where they are written.
template <class T>
class ArrayAutoPtr {
 public:
  explicit ArrayAutoPtr(T* array = nullptr) : array_(array) {}
  ArrayAutoPtr(const ArrayAutoPtr&) = delete;
  ArrayAutoPtr& operator=(const ArrayAutoPtr&) = delete;
  ~ArrayAutoPtr() { DeletePtr(); }

  T* Get() const { return array_; }
  T& operator[](size_t index) const { return array_[index]; }
  void Reset(T* array) {
    if (array != array_) {
      DeletePtr();
      array_ = array;
    }
  }
  void DeletePtr() {
    delete[] array_;
    array_ = nullptr;
  }

 private:
  T* array_;
};

}  // namespace qiro::k7m::impl
