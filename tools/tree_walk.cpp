#include "tree_walk.h"

#include <memory>
#include <new>

#include "base/client_streams.h"
#include "boxes/box_factory.h"
#include "boxes/full_box.h"
#include "boxes/k7m_parser.h"
#include "boxes/media_boxes.h"
#include "boxes/stsd_box.h"
#include "failure.h"
#include "tree_fields.h"

namespace qiro::k7m::tool {
namespace {

using impl::Box;
using impl::BoxFactory;
using impl::BoxHeader;

class TreeWalk {
 public:
  TreeWalk(FileStream& file, Warnings& warnings, uint64_t tableLimit, TreeForm& form)
      : file_(file),
        warning_(warnings.CallBacks()),
        stream_(file.CallBacks(), impl::WarningHandler(&warning_)),
        tableLimit_(tableLimit),
        form_(form) {}

  TreeResult Run() {
    stream_.Open();
    WalkLevel(0, stream_.Length(), nullptr, 1);
    stream_.Close();
    return result_;
  }

 private:
  void WalkLevel(uint64_t begin, uint64_t end, const BoxHeader* parent, uint32_t level);
  void WalkBox(const BoxHeader& header, uint32_t level);
  void WalkChildren(Box& box, uint32_t level);
  void Show(Box& box, bool isRead);
  std::unique_ptr<Box> Read(const BoxHeader& header, QiroK7MError* problem);
  std::optional<BoxHeader> ParseHeader(uint64_t position, const BoxHeader* parent);
  std::optional<BoxHeader> ParseCutHeader(uint64_t position);
  void Note(uint64_t offset, QiroK7MError code);
  template <class Step>
  QiroK7MError Attempt(const Step& step);

  FileStream& file_;
  QiroK7MWarningHandlerCallBacks warning_;
  impl::QiroK7MIStream stream_;
  uint64_t tableLimit_;
  TreeForm& form_;
  TreeResult result_;
  std::optional<uint32_t> handlerType_;  // Of the media box that is being walked.
};

// Runs something that the library may refuse; returns the refusal. What ends the walk is thrown on.
template <class Step>
QiroK7MError TreeWalk::Attempt(const Step& step) {
  try {
    step();
    return kQiroK7MErrorNone;
  } catch (const exception_t& refusal) {
    const QiroK7MError code = refusal.get_error();
    if (code == FileStream::kSystemFailed) throw file_.WhatFailed();
    if (code == kQiroK7MErrorAbortedByWarningHandler) throw LibraryFailure(file_.Path(), code);
    return code;
  } catch (const std::bad_alloc&) {
    return kQiroK7MErrorOutOfMemory;
  }
}

void TreeWalk::Note(uint64_t offset, QiroK7MError code) {
  const TreeProblem problem = {offset, DescribeCode(code)};
  form_.Problem(problem);
  ++result_.problemCount;
  if (!result_.firstProblem) result_.firstProblem = problem;
}

void TreeWalk::WalkLevel(uint64_t begin, uint64_t end, const BoxHeader* parent, uint32_t level) {
  uint64_t position = begin;
  while (position < end && (parent == nullptr || end - position >= impl::kMinHeaderSize)) {
    if (level > impl::kMaxNestingLevel) {
      Note(position, kQiroK7MErrorInvalidHierarchy);
      return;
    }
    const auto header = ParseHeader(position, parent);
    if (!header) return;
    WalkBox(*header, level);
    position = header->GetEndOffset();
  }
}

std::optional<BoxHeader> TreeWalk::ParseHeader(uint64_t position, const BoxHeader* parent) {
  std::optional<BoxHeader> header;
  const QiroK7MError problem = Attempt([&] {
    stream_.SeekTo(position);
    header = BoxHeader::Parse(stream_, parent);
    // Enough bytes for a header, and yet none: its end lies beyond all numbers.
    if (!header && stream_.Length() - position >= impl::kMinHeaderSize) {
      impl::ThrowException(kQiroK7MErrorBoxTruncated);
    }
  });
  if (problem == kQiroK7MErrorNone) return header;
  Attempt([&] { header = ParseCutHeader(position); });
  Note(position, problem);
  return header;
}

// The header of a box that runs past the end of the file, with the end of the file for its end.
// What there is of it can then be walked.
std::optional<BoxHeader> TreeWalk::ParseCutHeader(uint64_t position) {
  stream_.SeekTo(position);
  uint64_t size = stream_.ReadDWORD();
  BoxHeader header(stream_.ReadDWORD());
  if (size == 1) {
    header.SetExtendedSize(true);
    size = stream_.ReadDDWORD();
  }
  const uint64_t left = stream_.Length() - position;
  if (size <= left || header.GetHeaderSize() > left) return std::nullopt;
  header.SetBeginOffset(position);
  header.SetTotalBoxSize(left);
  return header;
}

std::unique_ptr<Box> TreeWalk::Read(const BoxHeader& header, QiroK7MError* problem) {
  std::unique_ptr<Box> box;
  *problem = Attempt([&] {
    stream_.SeekTo(header.GetBeginOffset() + header.GetHeaderSize());
    box = BoxFactory::Instance().CreateBox(&stream_, header, nullptr);
  });
  // Without an object of its own class the box is shown as one of unknown content.
  if (!box) box = impl::MakeBox<Box>(nullptr, &stream_, header);
  if (*problem != kQiroK7MErrorNone) return box;
  // The handler stands in front of the descriptions; without it they are not looked into.
  if (auto* stsd = dynamic_cast<impl::StsdBox*>(box.get()); stsd != nullptr && handlerType_) {
    stsd->SetMediaType(*handlerType_);
  }
  *problem = Attempt([&] {
    stream_.SeekTo(header.GetBeginOffset() + header.GetHeaderSize());
    box->ReadPayloadFromStream();
  });
  return box;
}

// Of a box that could not be read nothing is shown but its place: its fields hold no truth.
void TreeWalk::Show(Box& box, bool isRead) {
  BoxFacts facts;
  facts.offset = box.GetBeginOffset();
  facts.size = box.GetTotalBoxSize();
  facts.type = box.GetBoxType();
  const auto* full = dynamic_cast<const impl::FullBox*>(&box);
  if (isRead && full != nullptr) {
    facts.version = full->GetVersion();
    facts.flags = full->GetFlags();
  }
  FieldCollector fields(tableLimit_);
  if (isRead) box.Describe(fields);
  form_.BeginBox(facts, fields.Take());
  ++result_.boxCount;
}

void TreeWalk::WalkBox(const BoxHeader& header, uint32_t level) {
  QiroK7MError problem = kQiroK7MErrorNone;
  const std::unique_ptr<Box> box = Read(header, &problem);
  if (const auto* hdlr = dynamic_cast<const impl::HdlrBox*>(box.get())) {
    handlerType_ = hdlr->GetHandlerType();
  }
  Show(*box, problem == kQiroK7MErrorNone);
  if (problem != kQiroK7MErrorNone) Note(header.GetBeginOffset(), problem);
  WalkChildren(*box, level);
  form_.EndBox();
  if (header.GetBoxType() == impl::MdiaBox::kType) handlerType_.reset();
}

void TreeWalk::WalkChildren(Box& box, uint32_t level) {
  // Sample entries have been read together with their table.
  for (const auto& entry : box.Children()) {
    Show(*entry, true);
    form_.EndBox();
  }
  if (!BoxFactory::IsContainer(box.GetBoxType())) return;
  WalkLevel(box.GetBeginOffset() + box.GetHeaderSize(), box.GetEndOffset(), &box.GetBoxHeader(),
            level + 1);
}

}  // namespace

TreeResult WalkTree(FileStream& file, Warnings& warnings, uint64_t tableLimit, TreeForm& form) {
  return TreeWalk(file, warnings, tableLimit, form).Run();
}

}  // namespace qiro::k7m::tool
