#pragma once

#include <cstddef>
#include <cstdint>

#include "boxes/box.h"

namespace qiro::k7m::impl {

/// Walks the children of a box in file order. In the root box it parses on as it walks.
class BoxIterator {
 public:
  BoxIterator() = default;
  BoxIterator(Box* box, size_t start) : box_(box), position_(start) {}

  bool HasMoreEntries() const { return Current() != nullptr; }
  BoxIterator& operator++() {
    ++position_;
    return *this;
  }
  Box* operator*() const { return Current(); }
  Box* operator->() const { return Current(); }

 private:
  Box* Current() const { return box_ == nullptr ? nullptr : box_->GetBoxByPos(position_); }

  Box* box_ = nullptr;
  size_t position_ = 0;
};

/// As BoxIterator, for the children of one type.
class BoxIteratorByType {
 public:
  BoxIteratorByType() = default;
  BoxIteratorByType(Box* box, size_t start, uint32_t type) : all_(box, start), type_(type) {
    SkipOthers();
  }

  bool HasMoreEntries() const { return all_.HasMoreEntries(); }
  BoxIteratorByType& operator++() {
    ++all_;
    SkipOthers();
    return *this;
  }
  Box* operator*() const { return *all_; }
  Box* operator->() const { return *all_; }

 private:
  void SkipOthers() {
    while (all_.HasMoreEntries() && all_->GetBoxType() != type_) {
      ++all_;
    }
  }

  BoxIterator all_;
  uint32_t type_ = 0;
};

/// Walks the children that are there now from the last to the first.
class ReverseBoxIterator {
 public:
  ReverseBoxIterator() = default;
  explicit ReverseBoxIterator(Box* box)
      : box_(box), remaining_(box == nullptr ? 0 : box->Children().size()) {}

  bool HasMoreEntries() const { return remaining_ > 0; }
  ReverseBoxIterator& operator++() {
    --remaining_;
    return *this;
  }
  Box* operator*() const { return box_->Children()[remaining_ - 1].get(); }
  Box* operator->() const { return **this; }

 private:
  Box* box_ = nullptr;
  size_t remaining_ = 0;
};

/// As ReverseBoxIterator, for the children of one type.
class ReverseBoxIteratorByType {
 public:
  ReverseBoxIteratorByType() = default;
  ReverseBoxIteratorByType(Box* box, uint32_t type) : all_(box), type_(type) { SkipOthers(); }

  bool HasMoreEntries() const { return all_.HasMoreEntries(); }
  ReverseBoxIteratorByType& operator++() {
    ++all_;
    SkipOthers();
    return *this;
  }
  Box* operator*() const { return *all_; }
  Box* operator->() const { return *all_; }

 private:
  void SkipOthers() {
    while (all_.HasMoreEntries() && all_->GetBoxType() != type_) {
      ++all_;
    }
  }

  ReverseBoxIterator all_;
  uint32_t type_ = 0;
};

}  // namespace qiro::k7m::impl
