// One suite over the boxes with a payload: each row gives its bytes, the fields read from them, and
// what the box makes of being too short. A new box class gets a row here. Those that follow rules
// of their own have tests of their own: 'ftyp' in movie_boxes_test, 'stts' in time_tables_test,
// 'stsc' in sample_tables_test, references ('hint') and 'uuid' in movie_boxes_test and
// box_factory_test.
#include <gtest/gtest.h>

#include <new>
#include <optional>

#include "internals/document.h"
#include "internals/dump.h"
#include "support/sweep.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kTruncated = 27;
constexpr QiroK7MError kNoVersion = 28;

/// What a box says when it is cut to `size` bytes, header included, and more follows in the stream.
using Verdict = QiroK7MError (*)(size_t size);

QiroK7MError FieldsMissing(size_t size) { return size < 12 ? kNoVersion : kTruncated; }
QiroK7MError OnlyVersionMissing(size_t size) { return size < 12 ? kNoVersion : 0; }

struct Row {
  const char* name;
  Bytes bytes;
  const char* dump;
  Verdict whenCut = &FieldsMissing;
  std::optional<size_t> countOffset = {};  // Of the entry count, from the begin of the box.
  QiroK7MError tooMany = 0;                // For a count above 100000000.
  bool hasFixedSize = true;                // Bytes behind the fields mean nothing.
  bool isWrittenAsRead = false;
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

const Matrix kOtherMatrix = {1, 2, 3, 4, 5, 6, 7, 8, 9};
// 2000-01-02 03:04:05 and 2020-12-31 23:59:59.
constexpr uint64_t kCreated = 3029627045;
constexpr uint64_t kModified = 3692303999;

std::vector<Row> MovieRows() {
  const Mvhd mvhd{.creationTime = kCreated,
                  .modificationTime = kModified,
                  .timeScale = 600,
                  .duration = 0x80000001,
                  .rate = 0x00018000,
                  .volume = 0x0080,
                  .matrix = kOtherMatrix,
                  .nextTrackId = 9};
  Mvhd unity = mvhd;
  unity.matrix = kUnityMatrix;
  const Tkhd tkhd{.creationTime = kCreated,
                  .modificationTime = kModified,
                  .trackId = 0xFFFFFFFE,
                  .duration = 0x80000001,
                  .layer = 0xFFFF,
                  .alternateGroup = 2,
                  .volume = 0x0140,
                  .matrix = kOtherMatrix,
                  .width = 0x01408000,
                  .height = 0x00F00000};
  Tkhd unityTrack = tkhd;
  unityTrack.matrix = kUnityMatrix;
  const char* mvhdDump =
      "creation_time=2000-1-2T3:4:5 modification_time=2020-12-31T23:59:59 timescale=600 "
      "duration=2147483649 rate=1.5 volume=0.5 "
      "matrix=[9] { value=1 } { value=2 } { value=3 } ; next_track_ID=9";
  const char* tkhdDump =
      "creation_time=2000-1-2T3:4:5 modification_time=2020-12-31T23:59:59 track_ID=4294967294 "
      "duration=2147483649 layer=65535 alternate_group=2 volume=1.25 "
      "matrix=[9] { value=1 } { value=2 } { value=3 } ; width=320.5 height=240";
  const char* unityDump =
      "creation_time=2000-1-2T3:4:5 modification_time=2020-12-31T23:59:59 timescale=600 "
      "duration=2147483649 rate=1.5 volume=0.5 "
      "matrix=[9] { value=65536 } { value=0 } { value=0 } ; next_track_ID=9";
  const char* unityTrackDump =
      "creation_time=2000-1-2T3:4:5 modification_time=2020-12-31T23:59:59 track_ID=4294967294 "
      "duration=2147483649 layer=65535 alternate_group=2 volume=1.25 "
      "matrix=[9] { value=65536 } { value=0 } { value=0 } ; width=320.5 height=240";
  return {
      {.name = "mvhd0", .bytes = FullBox("mvhd", 0, 0, mvhd), .dump = mvhdDump},
      {.name = "mvhd1", .bytes = FullBox("mvhd", 1, 0, mvhd), .dump = mvhdDump},
      {.name = "mvhd2", .bytes = FullBox("mvhd", 2, 0, mvhd), .dump = mvhdDump},
      {.name = "mvhd255", .bytes = FullBox("mvhd", 255, 0, mvhd), .dump = mvhdDump},
      {.name = "mvhdUnity",
       .bytes = FullBox("mvhd", 1, 0xABCDEF, unity),
       .dump = unityDump,
       .isWrittenAsRead = true},
      {.name = "tkhd0", .bytes = FullBox("tkhd", 0, 7, tkhd), .dump = tkhdDump},
      {.name = "tkhd1", .bytes = FullBox("tkhd", 1, 7, tkhd), .dump = tkhdDump},
      {.name = "tkhd2", .bytes = FullBox("tkhd", 2, 7, tkhd), .dump = tkhdDump},
      {.name = "tkhdUnity",
       .bytes = FullBox("tkhd", 1, 7, unityTrack),
       .dump = unityTrackDump,
       .isWrittenAsRead = true},
  };
}

std::vector<Row> MediaRows() {
  const Mdhd mdhd{.creationTime = kCreated,
                  .modificationTime = kModified,
                  .timeScale = 90000,
                  .duration = 0x80000001,
                  .language = 0x15C7};
  const char* mdhdDump =
      "creation_time=2000-1-2T3:4:5 modification_time=2020-12-31T23:59:59 timescale=90000 "
      "duration=2147483649 language=5575";
  const Elst elst{.entries = {{10, -1, 1, 0}, {0x80000000, 7, -2, 3}}};
  const char* elstDump =
      "entries=[2] { segment_duration=10 media_time=-1 media_rate_integer=1 media_rate_fraction=0 }"
      " { segment_duration=2147483648 media_time=7 media_rate_integer=-2 media_rate_fraction=3 } ;";
  return {
      {.name = "mdhd0", .bytes = FullBox("mdhd", 0, 0, mdhd), .dump = mdhdDump},
      {.name = "mdhd1",
       .bytes = FullBox("mdhd", 1, 0, mdhd),
       .dump = mdhdDump,
       .isWrittenAsRead = true},
      {.name = "hdlr",
       .bytes = FullBox("hdlr", 0, 0, Hdlr{.type = "soun", .name = std::string("ab\0", 3)}),
       .dump = "handler_type='soun' name=616200",
       .whenCut = [](size_t size) { return size < 32 ? FieldsMissing(size) : 0; },
       .hasFixedSize = false},
      {.name = "vmhd",
       .bytes = FullBox("vmhd", 0, 1, Vmhd{.graphicsMode = 1, .opColor = {2, 3, 65535}}),
       .dump = "graphicsmode=1 opcolor_red=2 opcolor_green=3 opcolor_blue=65535"},
      {.name = "smhd",
       .bytes = FullBox("smhd", 0, 0, Smhd{.balance = 0x8001}),
       .dump = "balance=32769",
       .isWrittenAsRead = true},
      {.name = "nmhd", .bytes = FullBox("nmhd", 0, 0), .dump = "", .isWrittenAsRead = true},
      {.name = "url", .bytes = FullBox("url ", 0, 1), .dump = "", .isWrittenAsRead = true},
      {.name = "dref",
       .bytes = FullBox("dref", 1, 0, Dref{.entries = {}, .count = 5}),
       .dump = "entry_count=5",
       .hasFixedSize = false,
       .isWrittenAsRead = true},
      {.name = "elst0",
       .bytes = FullBox("elst", 0, 0, elst),
       .dump = elstDump,
       .countOffset = 12,
       .tooMany = 9,
       .hasFixedSize = false},
      {.name = "elst1",
       .bytes = FullBox("elst", 1, 0, elst),
       .dump = elstDump,
       .countOffset = 12,
       .tooMany = 9,
       .hasFixedSize = false},
      {.name = "elst2",
       .bytes = FullBox("elst", 2, 0, elst),  // Any version but 1 has the 32-bit layout.
       .dump = elstDump,
       .countOffset = 12,
       .tooMany = 9,
       .hasFixedSize = false},
  };
}

std::vector<Row> TableRows() {
  const char* offsetsDump =
      "entries=[4] { chunk_offset=1 } { chunk_offset=4294967295 } "
      "{ chunk_offset=3 } ;";
  return {
      {.name = "stsd",
       .bytes = FullBox("stsd", 0, 0, Stsd{.count = 3}),
       .dump = "entry_count=3",
       .countOffset = 12,
       .tooMany = 31,
       .hasFixedSize = false},
      {.name = "ctts",
       .bytes = FullBox("ctts", 0, 0, Ctts{.runs = {{2, 5}, {1, 0xFFFFFFFF}}}),
       .dump = "entries=[2] { sample_count=2 sample_offset=5 } "
               "{ sample_count=1 sample_offset=-1 } ;",
       .countOffset = 12,
       .tooMany = 9},
      {.name = "stss",
       .bytes = FullBox("stss", 0, 0, Stss{.numbers = {1, 10, 0xFFFFFFFF}}),
       .dump = "entries=[3] { sample_number=1 } { sample_number=10 } "
               "{ sample_number=4294967295 } ;",
       .countOffset = 12,
       .tooMany = 31},
      {.name = "stszTable",
       .bytes = FullBox("stsz", 0, 0, Stsz{.sizes = {7, 0, 0x80000000}}),
       .dump = "sample_size=0 sample_count=3 entries=[3] { entry_size=7 } { entry_size=0 } "
               "{ entry_size=2147483648 } ;",
       .countOffset = 16,
       .tooMany = 31},
      {.name = "stszConstant",
       .bytes = FullBox("stsz", 0, 0, Stsz{.constantSize = 512, .count = 1000}),
       .dump = "sample_size=512 sample_count=1000 entries=[0] ;"},
      {.name = "stco",
       .bytes = FullBox("stco", 0, 0, Stco{.offsets = {1, 0xFFFFFFFF, 3, 4}}),
       .dump = offsetsDump,
       .countOffset = 12,
       .tooMany = 31},
      {.name = "co64",
       .bytes = FullBox("co64", 0, 0, Co64{.offsets = {1, 0xFFFFFFFF, 3, uint64_t{1} << 63}}),
       .dump = offsetsDump,
       .countOffset = 12,
       .tooMany = 31},
      {.name = "sdtp",
       .bytes = FullBox("sdtp", 0, 0),
       .dump = "entries=",  // Its length stands in an 'stsz', of which there is none.
       .whenCut = &OnlyVersionMissing},
  };
}

std::vector<Row> FragmentRows() {
  const char* longDump = "fragment_duration=1311768467463790320";
  return {
      {.name = "mehd0",
       .bytes = FullBox("mehd", 0, 0, Mehd{.duration = 0xFFFFFFFF}),
       .dump = "fragment_duration=4294967295",
       .isWrittenAsRead = true},
      {.name = "mehd1",
       .bytes = FullBox("mehd", 1, 0, Mehd{.duration = 0x123456789ABCDEF0}),
       .dump = longDump,
       .isWrittenAsRead = true},
      {.name = "mehd2",  // Any version but 1 has the 32-bit layout.
       .bytes = FullBox("mehd", 2, 0, Bytes().U32(3)),
       .dump = "fragment_duration=3",
       .isWrittenAsRead = true},
      {.name = "trex",
       .bytes = FullBox("trex", 0, 0, Trex{9, 0xFFFFFFFF, 3, 4, 0x01010000}),
       .dump = "track_ID=9 default_sample_description_index=4294967295 default_sample_duration=3 "
               "default_sample_size=4 default_sample_flags=16842752",
       .isWrittenAsRead = true},
      {.name = "mfhd",
       .bytes = FullBox("mfhd", 0, 0, Mfhd{.sequenceNumber = 0xFFFFFFFE}),
       .dump = "sequence_number=4294967294",
       .isWrittenAsRead = true},
      {.name = "tfhd",
       .bytes = FullBox("tfhd", 0, 0x3B, Tfhd{4, uint64_t{1} << 40, 2, 5, 6, 7}),
       .dump = "track_ID=4 base_data_offset=1099511627776 sample_description_index=2 "
               "default_sample_duration=5 default_sample_size=6 default_sample_flags=7",
       .whenCut = &OnlyVersionMissing},
      {.name = "tfhdWithoutOptionalFields",
       .bytes = FullBox("tfhd", 0, 0xFFFFC4, Tfhd{.trackId = 4}),
       .dump = "track_ID=4",
       .whenCut = &OnlyVersionMissing,
       .isWrittenAsRead = true},
      {.name = "trun",
       .bytes = FullBox("trun", 0, 0xF05, Trun{-8, 9, {{1, 2, 3, 4}, {5, 6, 7, 0xFFFFFFFF}}}),
       .dump = "sample_count=2 data_offset=-8 first_sample_flags=9 samples=[2] "
               "{ sample_duration=1 sample_size=2 sample_flags=3 sample_composition_time_offset=4 }"
               " { sample_duration=5 sample_size=6 sample_flags=7 "
               "sample_composition_time_offset=-1 } ;",
       // One byte a field is asked for, not four.
       .whenCut = [](size_t size) { return size < 12 + 12 + 8 ? FieldsMissing(size) : 0; }},
      {.name = "trunWithoutRecords",
       .bytes = FullBox("trun", 0, 0, Trun{.count = 0xFFFFFFFF}),
       .dump = "sample_count=4294967295 samples=[0] ;"},
  };
}

std::vector<Row> AllRows() {
  std::vector<Row> rows;
  for (const auto& family : {MovieRows(), MediaRows(), TableRows(), FragmentRows()}) {
    rows.insert(rows.end(), family.begin(), family.end());
  }
  return rows;
}

template <class Predicate>
std::vector<Row> RowsThat(Predicate predicate) {
  std::vector<Row> rows = AllRows();
  std::erase_if(rows, [&](const Row& row) { return !predicate(row); });
  return rows;
}

class EveryBox : public ::testing::TestWithParam<Row> {
 protected:
  /// The box of these bytes with another box behind it.
  static Bytes WithMoreBehind(const Bytes& box) { return box + Box("free", Bytes().Fill(100)); }
  static uint32_t Payload(const Bytes& box) { return static_cast<uint32_t>(box.Size() - 8); }
  /// How often the stream is asked for bytes while all is parsed.
  static uint64_t ReadsOf(const Bytes& bytes) {
    Document document(bytes);
    document.ParseAll();
    return document.Opened().Memory().Count(Call::kRead);
  }
  static std::string CodeOf(const Bytes& box) {
    return {reinterpret_cast<const char*>(box.Data()) + 4, 4};
  }
};

class EveryFixedBox : public EveryBox {};
class EveryCountedBox : public EveryBox {};
class EveryWritableBox : public EveryBox {};

TEST_P(EveryBox, ReportsItsFields) {
  Document document(WithMoreBehind(GetParam().bytes));
  EXPECT_EQ(Dump(*document.Next()), GetParam().dump);
  EXPECT_EQ(TypeOf(document.Next()), Code("free"));
  EXPECT_TRUE(document.Warnings().empty());
}

TEST_P(EveryBox, MayStandAtTheEndOfTheStream) {
  Document document(GetParam().bytes);
  EXPECT_EQ(Dump(*document.Next()), GetParam().dump);
  EXPECT_EQ(document.Next(), nullptr);
  EXPECT_TRUE(document.Warnings().empty());
}

TEST_P(EveryBox, IsTheSameInEveryFormOfHeader) {
  const Bytes payload = GetParam().bytes.Slice(8, Payload(GetParam().bytes));
  const std::string code = CodeOf(GetParam().bytes);
  for (const Bytes& form :
       {LargeBox(code, payload), BoxAsUuid(code, payload), TillEndBox(code, payload),
        LargeBox("uuid", UuidBytes(UuidOfCode(code)), payload)}) {
    Document document(form);
    EXPECT_EQ(Dump(*document.Next()), GetParam().dump);
    EXPECT_TRUE(document.Warnings().empty());
  }
}

TEST_P(EveryBox, CutByItsOwnSizeIsTheDocumentedError) {
  const Bytes& bytes = GetParam().bytes;
  for (size_t size = 8; size < bytes.Size(); ++size) {
    Document document(WithMoreBehind(Cut(bytes, size).Patch(0, size)));
    EXPECT_EQ(ErrorOf([&] { document.Next(); }), GetParam().whenCut(size)) << size << " bytes";
  }
}

TEST_P(EveryBox, CutWithTheStreamIsError27) {
  const Bytes& bytes = GetParam().bytes;
  for (size_t size = 8; size < bytes.Size(); ++size) {
    EXPECT_EQ(ParseError(Cut(bytes, size)), kTruncated) << size << " bytes";
  }
}

TEST_P(EveryFixedBox, LongerThanItsFieldsIsAcceptedSilently) {
  for (const size_t more : {1U, 4U, 50U}) {
    Bytes bytes = GetParam().bytes;
    bytes.Patch(0, bytes.Size() + more);
    Document document(WithMoreBehind(bytes.Fill(more, 0xEE)));
    EXPECT_EQ(Dump(*document.Next()), GetParam().dump);
    EXPECT_EQ(TypeOf(document.Next()), Code("free"));
    EXPECT_TRUE(document.Warnings().empty());
  }
}

TEST_P(EveryCountedBox, ACountThatLiesIsCaught) {
  const auto withCount = [](uint32_t count) {
    return WithMoreBehind(Bytes(GetParam().bytes).Patch(*GetParam().countOffset, count));
  };
  const uint64_t count = GetParam().bytes.NumberAt(*GetParam().countOffset);
  // Only the entries of an 'stsd' are not read as long as the media type is not known.
  const QiroK7MError tooFew = CodeOf(GetParam().bytes) == "stsd" ? 0 : kTruncated;
  EXPECT_EQ(ParseError(withCount(static_cast<uint32_t>(count + 1))), tooFew);
  EXPECT_EQ(ParseError(withCount(100000000)), tooFew);
  EXPECT_EQ(ParseError(withCount(100000001)), GetParam().tooMany);
  EXPECT_EQ(ParseError(withCount(0xFFFFFFFF)), GetParam().tooMany);
  EXPECT_EQ(ParseError(withCount(0)), 0U);
}

TEST_P(EveryWritableBox, IsWrittenAsItWasRead) {
  MemoryStream memory(GetParam().bytes);
  impl::QiroK7MIOStream stream(memory.ReadingAndWriting());
  stream.Open();
  impl::RootBox root(&stream, nullptr);
  impl::Box* box = root.ParseNextBox();
  memory.Put(0, Bytes().Fill(GetParam().bytes.Size(), 0xEE));
  box->WriteBox();
  EXPECT_EQ(memory.Content(), GetParam().bytes);
}

TEST_P(EveryBox, EveryFailingCallbackIsTheResult) {
  const Bytes file = WithMoreBehind(GetParam().bytes);
  for (const Call call : {Call::kRead, Call::kSeek, Call::kTell}) {
    Sweep([&](uint64_t n) {
      Document document(file);
      document.Opened().Memory().FailNth(call, n, 4711);
      const QiroK7MError error = ErrorOf([&] { document.ParseAll(); });
      EXPECT_EQ(error, document.Opened().Memory().FaultHit() ? 4711U : 0U);
      return document.Opened().Memory().FaultHit();
    });
  }
}

TEST_P(EveryBox, EveryShortReadIsError5) {
  const Bytes& bytes = GetParam().bytes;
  uint64_t ofPayload = 0;
  const uint64_t hits = SweepShortReads([&](uint64_t n, Shortfall shortfall) {
    Document document(bytes);
    MemoryStream& memory = document.Opened().Memory();
    memory.ShortenNthRead(n, shortfall);
    const QiroK7MError error = ErrorOf([&] { document.ParseAll(); });
    EXPECT_EQ(error, memory.FaultHit() ? 5U : 0U) << "read " << n;
    if (memory.FaultHit() && memory.ShortenedRead().offset >= 8) ++ofPayload;
    return memory.FaultHit();
  });
  EXPECT_EQ(hits, 3 * ReadsOf(bytes)) << "once for each shortfall";
  EXPECT_GE(ofPayload, 3U);
}

TEST_P(EveryBox, EveryFailingAllocationPassesAndLeaksNothing) {
  const Bytes file = WithMoreBehind(GetParam().bytes);
  const auto parse = [&file](const QiroK7MAllocatorCallBacks* allocator) -> QiroK7MError {
    Document document(file, allocator);
    try {
      document.ParseAll();
    } catch (const std::bad_alloc&) {
      return kQiroK7MErrorOutOfMemory;
    }
    return kQiroK7MErrorNone;
  };
  SweepAllocator([&](const QiroK7MAllocatorCallBacks& record) { return parse(&record); });
}

TEST_P(EveryBox, EveryFailingHeapAllocationPassesAndLeaksNothing) {
  ASSERT_TRUE(HeapIsWatched());
  MemoryStream memory(WithMoreBehind(GetParam().bytes));
  impl::QiroK7MIStream stream(memory.Reading(), impl::WarningHandler());
  stream.Open();
  SweepHeap([&]() -> QiroK7MError {
    try {
      impl::RootBox root(&stream, nullptr);
      while (root.ParseNextBox() != nullptr) {
      }
    } catch (const std::bad_alloc&) {
      return kQiroK7MErrorOutOfMemory;
    }
    return kQiroK7MErrorNone;
  });
}

std::string RowName(const ::testing::TestParamInfo<Row>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Boxes, EveryBox, ::testing::ValuesIn(AllRows()), RowName);
INSTANTIATE_TEST_SUITE_P(Boxes, EveryFixedBox, ::testing::ValuesIn(RowsThat([](const Row& row) {
                           return row.hasFixedSize;
                         })),
                         RowName);
INSTANTIATE_TEST_SUITE_P(Boxes, EveryCountedBox, ::testing::ValuesIn(RowsThat([](const Row& row) {
                           return row.countOffset.has_value();
                         })),
                         RowName);
INSTANTIATE_TEST_SUITE_P(Boxes, EveryWritableBox, ::testing::ValuesIn(RowsThat([](const Row& row) {
                           return row.isWrittenAsRead;
                         })),
                         RowName);

}  // namespace
}  // namespace k7mtest
