#include "warnings.h"

#include <utility>

#include "failure.h"
#include "messages.h"

namespace qiro::k7m::tool {
namespace {

constexpr uint64_t kShownOfEachKind = 5;

}  // namespace

Warnings::Warnings(std::string path, bool isStrict, bool isQuiet)
    : path_(std::move(path)), isStrict_(isStrict), isQuiet_(isQuiet) {}

Warnings::~Warnings() {
  for (const auto& [warning, count] : counts_) {
    if (count <= kShownOfEachKind) continue;
    PrintMessage(path_ + ": warning: " + QiroK7MErrorName(warning) + " (" +
                 std::to_string(warning) + "): " + std::to_string(count - kShownOfEachKind) +
                 " more of these");
  }
}

QiroK7MWarningHandlerCallBacks Warnings::CallBacks() {
  QiroK7MWarningHandlerCallBacks record;
  record.clientData = this;
  record.warningCallback = [](void* self, QiroK7MError warning) -> int32_t {
    auto* warnings = static_cast<Warnings*>(self);
    warnings->Show(warning);
    return warnings->isStrict_ ? 0 : 1;
  };
  return record;
}

void Warnings::Show(QiroK7MError warning) {
  if (isQuiet_ || ++counts_[warning] > kShownOfEachKind) return;
  PrintMessage(path_ + ": warning: " + DescribeCode(warning));
}

}  // namespace qiro::k7m::tool
