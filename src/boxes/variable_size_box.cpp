#include "boxes/variable_size_box.h"

#include <algorithm>

namespace qiro::k7m::impl {

void VariableSizeBox::AddPlaceholder(uint64_t size, uint64_t begin) {
  auto skip = MakeBox<SkipBox>(GetAllocator(), &Stream(), FourCc("skip"));
  skip->UpdateSkipBox(size, begin);
  placeholder_ = skip.get();
  MutableChildren().push_back(std::move(skip));
}

void VariableSizeBox::CreateChildBox(std::unique_ptr<Box> child) {
  auto& children = MutableChildren();
  children.reserve(children.size() + 1);
  const auto place = std::find_if(children.begin(), children.end(),
                                  [this](const auto& box) { return box.get() == placeholder_; });
  const uint64_t begin = placeholder_->GetBeginOffset();
  const uint64_t childSize = child->GetTotalSize();
  const uint64_t rest = placeholder_->GetTotalSize() - childSize;
  child->SetBeginOffset(begin);
  std::unique_ptr<Box> skip = std::move(*place);
  children.erase(place);
  children.push_back(std::move(child));
  if (rest < kMinHeaderSize) {
    placeholder_ = nullptr;
    return;
  }
  placeholder_->UpdateSkipBox(rest, begin + childSize);
  children.push_back(std::move(skip));
}

}  // namespace qiro::k7m::impl
