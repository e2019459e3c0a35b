// `k7m verify`: fragments, and the tables that point at them.
#include "small_fragments.h"
#include "support/box_finder.h"
#include "support/fragment_file.h"
#include "verified_file.h"

namespace k7mtest {
namespace {

constexpr uint32_t kNoKey = 0x01010000;

// Gives the fragments the numbers 1, 2, 3 ...
Bytes Numbered(Bytes file) {
  uint32_t number = 0;
  for (size_t i = 4; i + 12 <= file.Size(); ++i) {
    if (file.NumberAt(i) == Code("mfhd")) file.Patch(i + 8, ++number);
  }
  return file;
}

Bytes Head(const std::function<void(Movie&)>& change = [](Movie&) {}) {
  Movie movie = SmallFragmentedMovie();
  change(movie);
  const MovieFile file = BuildMovie(movie);
  return Cut(file.bytes, file.mdatOffset);
}

Bytes TwoFragments(uint64_t firstTime, uint64_t secondTime) {
  return Numbered(Head() +
                  Fragment({{.track = 1, .time = firstTime, .samples = SomeSamples(2, 40)}}) +
                  Fragment({{.track = 1, .time = secondTime, .samples = SomeSamples(2, 40)}}));
}

Bytes Traf(const Bytes& tfhd, const Bytes& trun = Bytes()) {
  return Box("moof", FullBox("mfhd", 0, 0, Mfhd{}), Box("traf", tfhd, trun));
}

Bytes WithDefaults(const Bytes& trex, uint32_t track) {
  return Head([&](Movie& movie) {
           movie.moreInMoov = Box("mvex", trex, FullBox("trex", 0, 0, Trex{.trackId = 2}));
         }) +
         Fragment({{.track = track, .samples = SomeSamples(2, 40)}});
}

// One sample of 30 bytes behind a movie box; its data offset is changed by `shift`.
Bytes WithDataOffset(int32_t shift) {
  const auto moof = [&](int32_t offset) {
    return Traf(FullBox("tfhd", 0, 0x020000, Tfhd{}),
                FullBox("trun", 0, 0x301,
                        Trun{.dataOffset = offset, .samples = {{.duration = 40, .size = 30}}}));
  };
  const auto size = static_cast<int32_t>(moof(0).Size());
  return Head() + moof(size + 8 + shift) + Box("mdat", Pattern(30));
}

// An 'mfra' with one entry, in a table with numbers of one byte.
Bytes Mfra(uint32_t track, uint64_t moof, uint8_t traf, uint8_t trun, uint8_t sample,
           uint32_t sizeError = 0, uint64_t time = 0) {
  const Bytes tfra =
      FullBox("tfra", 1, 0,
              Bytes().U32(track).U32(0).U32(1).U64(time).U64(moof).U8(traf).U8(trun).U8(sample));
  const auto size = static_cast<uint32_t>(8 + tfra.Size() + 16);
  return Box("mfra", tfra, FullBox("mfro", 0, 0, Bytes().U32(size + sizeError)));
}

// The second fragment of the small file begins with a picture that is no key.
Bytes WithSeekEntry(size_t fragment, uint8_t traf, uint8_t trun, uint8_t sample, uint32_t track = 1,
                    int shift = 0) {
  const Bytes head = Head();
  const Bytes fragments = Numbered(SmallFragments());
  uint64_t offset = 0;
  for (size_t i = 0; i < 2 * fragment; ++i) offset += fragments.NumberAt(offset);
  const uint64_t target = head.Size() + offset + static_cast<uint64_t>(shift);
  return head + fragments + Mfra(track, target, traf, trun, sample);
}

// The first fragment, of 80 ms, and an entry for it with this time. `edits` go into the track.
Bytes WithSeekTime(uint64_t time, const std::vector<Elst::Entry>& edits = {}) {
  const Bytes head = Head([&](Movie& movie) {
    if (!edits.empty()) movie.tracks[0].edits = edits;
  });
  return head + Numbered(SmallFragments()) + Mfra(1, head.Size(), 1, 1, 1, 0, time);
}

// The fragments end at 200 ms.
Bytes WithDuration(uint32_t milliseconds, const std::vector<Elst::Entry>& edits = {}) {
  const Bytes head = Head([&](Movie& movie) {
    const Bytes mehd = FullBox("mehd", 0, 0, Bytes().U32(milliseconds));
    movie.moreInMoov = Box("mvex", mehd, FullBox("trex", 0, 0, Trex{.trackId = 1}),
                           FullBox("trex", 0, 0, Trex{.trackId = 2}));
    if (!edits.empty()) movie.tracks[0].edits = edits;
  });
  return head + Numbered(SmallFragments());
}

// The fragments end at 200 ms.
Bytes WithEdit(const Elst::Entry& edit, uint64_t delay = 0) {
  return Head([&](Movie& movie) { movie.tracks[1].edits = {edit}; }) +
         Numbered(SmallFragments(delay));
}

Bytes Sidx(uint32_t firstOffset, const std::vector<uint32_t>& sizes) {
  Bytes fields = Bytes().U32(1).U32(1000).U32(0).U32(firstOffset).U16(0).U16(sizes.size());
  for (const uint32_t size : sizes) fields.U32(size).U32(80).U32(0x90000000);
  return FullBox("sidx", 0, 0, fields);
}

// A K7R file of one fragment with a key sample and another one, and one random access entry.
Bytes WithAccessEntry(size_t sample, uint64_t shift = 0, bool isKey = true) {
  TestFragment fragment{.samples = {Pattern(20), Pattern(30)}};
  fragment.afra.locals = {{.time = 0, .offset = 0}};
  const uint64_t begin = BuildFragmentFile({fragment}).fragments[0].Size() - 50;
  fragment.afra.locals[0].offset = begin + (sample == 0 ? 0 : 20) + shift;
  FragmentFile file = BuildFragmentFile({fragment});
  if (!isKey) {
    for (size_t i = 4; i + 40 < file.bytes.Size(); ++i) {
      if (file.bytes.NumberAt(i) == Code("trex")) file.bytes.Patch(i + 24, kNoKey);
    }
  }
  return file.bytes;
}

// Two fragments; the first has an entry for a place in the second, `inside` bytes behind its begin.
Bytes WithGlobalEntry(int shift, uint64_t inside, bool isLong = true) {
  std::vector<TestFragment> fragments(2);
  fragments[0].afra.hasLongOffsets = isLong;
  fragments[0].afra.globals = {{}};
  const uint64_t second = BuildFragmentFile(fragments).offsets[1];
  fragments[0].afra.globals = {
      {.afraOffset = second + static_cast<uint64_t>(shift), .offsetFromAfra = inside}};
  return BuildFragmentFile(fragments).bytes;
}

// Of the second fragment.
uint64_t FragmentSize() { return BuildFragmentFile({TestFragment()}).fragments[0].Size(); }

class BrokenFragments : public testing::TestWithParam<BrokenFile> {};

TEST_P(BrokenFragments, AreFound) { ExpectFound(GetParam()); }

const BrokenFile kBrokenFragments[] = {
    {"fragment-sequence", "moof[2]/mfhd", 3, [] { return Head() + SmallFragments(); }},
    {"fragment-gap", "moof[2]/traf/tfdt", 3, [] { return TwoFragments(0, 180); }},
    {"fragment-overlap", "moof[2]/traf/tfdt", 3, [] { return TwoFragments(100, 140); }},
    {"fragment-track",
     "moof/traf/tfhd",
     1,
     [] { return WithDefaults(FullBox("trex", 0, 0, Trex{.trackId = 9}), 9); },
     {"not-readable"}},
    {"trex-missing",
     "moof/traf/tfhd",
     1,
     [] { return WithDefaults(Bytes(), 1); },
     {"not-readable"}},
    {"fragment-description", "moof/traf/tfhd", 1,
     [] { return WithDefaults(FullBox("trex", 0, 0, Trex{.trackId = 1, .description = 7}), 1); }},
    {"tfhd-truncated",
     "moof/traf/tfhd",
     1,
     [] { return Head() + Traf(FullBox("tfhd", 0, 0x8, Bytes().U32(1))); },
     {"not-readable"}},
    {"trun-truncated",
     "moof/traf/trun",
     1,
     [] {
       return Head() +
              Traf(FullBox("tfhd", 0, 0, Tfhd{}), FullBox("trun", 0, 0x300, Trun{.count = 5}));
     },
     {"not-readable"}},
    {"box-missing", "moof/traf", 1, [] { return Head() + Traf(Bytes()); }, {"not-readable"}},
    {"sample-past-end",
     "moof/traf/trun",
     1,
     [] { return WithDataOffset(100); },
     {"sample-unreadable"}},
    {"sample-past-end",
     "moof/traf/trun",
     1,
     [] { return WithDataOffset(-100000); },
     {"sample-unreadable", "not-readable"}},
    {"sample-outside-mdat",
     "moov/trak[1]",
     3,
     [] { return WithDataOffset(-4); },
     {},
     [](const Bytes& file) { return PlaceOf(file, "mdat").offset + 4; }},
    {"tfra-moof", "mfra/tfra", 1, [] { return WithSeekEntry(0, 1, 1, 1, 1, 3); }},
    {"tfra-sample", "mfra/tfra", 1, [] { return WithSeekEntry(0, 1, 1, 9); }},
    {"tfra-sample", "mfra/tfra", 1, [] { return WithSeekEntry(0, 1, 1, 1, 5); }},
    {"tfra-key", "mfra/tfra", 3, [] { return WithSeekEntry(1, 1, 1, 1); }},
    {"tfra-time", "mfra/tfra", 3, [] { return WithSeekTime(1100); }},
    {"fragment-duration", "moov/mvex/mehd", 3, [] { return WithDuration(1210); }},
    {"fragment-duration", "moov/mvex/mehd", 3,
     [] {
       return WithDuration(3210, {{2000, -1}, {200, 0}});
     }},
    {"edit-past-media", "moov/trak[2]/edts/elst", 3,
     [] {
       return WithEdit({1210, 0});
     }},
    {"edit-past-media", "moov/trak[2]/edts/elst", 3,
     [] {
       return WithEdit({1210, 5000}, 5000);
     }},
    {"mfro-size", "mfra/mfro", 3,
     [] {
       const Bytes head = Head();
       return head + Numbered(SmallFragments()) + Mfra(1, head.Size(), 1, 1, 1, 5);
     }},
    {"sidx-target", "sidx", 1, [] { return Head() + Sidx(5, {20}) + Numbered(SmallFragments()); }},
    {"afra-sample", "afra", 1, [] { return WithAccessEntry(0, 3); }},
    {"afra-key", "afra", 3, [] { return WithAccessEntry(0, 0, false); }},
    {"afra-target", "afra[1]", 1, [] { return WithGlobalEntry(4, 0); }},
    {"afra-sample", "afra[1]", 1, [] { return WithGlobalEntry(0, FragmentSize()); }},
    {"afra-sample", "afra[1]", 1, [] { return WithGlobalEntry(0, FragmentSize(), false); }},
    {"afra-sample", "afra[1]", 1, [] { return WithGlobalEntry(0, UINT32_MAX); }},
    {"fragment-order", "free", 3,
     [] {
       TestFragment fragment;
       fragment.bootstrap = Box("free", Bytes{1, 2});
       return BuildFragmentFile({fragment}).bytes;
     }},
    {"fragment-order",
     "afra[2]",
     3,
     [] { return BuildFragmentFile({TestFragment{}}, Box("free")).bytes + AfraBox({}); },
     {}},
};

INSTANTIATE_TEST_SUITE_P(Verify, BrokenFragments, testing::ValuesIn(kBrokenFragments), NameOf);

TEST(VerifyFragments, AFragmentedFileInOrderIsClean) {
  for (const Bytes& file :
       {Head() + Numbered(SmallFragments()), Head() + Numbered(SmallFragments(100000)),
        TwoFragments(0, 80), WithDataOffset(0), WithSeekEntry(0, 1, 1, 1),
        WithSeekEntry(2, 1, 1, 1), WithAccessEntry(0), WithAccessEntry(1),
        WithGlobalEntry(0, FragmentSize() - 1), WithGlobalEntry(0, UINT64_MAX),
        WithGlobalEntry(0, UINT32_MAX, false)}) {
    const Verdict verdict = Verify(file);
    EXPECT_EQ(verdict.exitCode, 0) << verdict.json.dump(2);
    EXPECT_TRUE(verdict.json["findings"].empty()) << verdict.json.dump(2);
  }
}

// Writers differ in whether they count gaps, and what is skipped at the begin.
TEST(VerifyFragments, TimesAndDurationsMayBeThoseOfDecodingOrOfShowing) {
  for (const Bytes& file :
       {WithSeekTime(1070), WithSeekTime(3070, {{2000, -1}, {200, 0}}), WithSeekTime(0),
        WithDuration(0), WithDuration(1190), WithDuration(200, {{2000, -1}, {200, 0}}),
        WithDuration(3190, {{2000, -1}, {200, 0}}), WithEdit({1190, 0}),
        WithEdit({1190, 5000}, 5000), WithEdit({0, 5000}), Head([](Movie& movie) {
          movie.tracks[1].edits = {{5000, 0}};
        })}) {
    const Verdict verdict = Verify(file);
    EXPECT_EQ(verdict.exitCode, 0) << verdict.json.dump(2);
  }
}

TEST(VerifyFragments, SegmentReferencesThatMeetBoxesAreFine) {
  const Bytes fragments = Numbered(SmallFragments());
  const auto first = static_cast<uint32_t>(fragments.NumberAt(0));
  const auto size = first + static_cast<uint32_t>(fragments.NumberAt(first));
  const Verdict verdict = Verify(Head() + Sidx(0, {size, 12}) + fragments);
  EXPECT_EQ(verdict.exitCode, 0) << verdict.json.dump(2);
}

TEST(VerifyFragments, GapsAreToldInSeconds) {
  const auto finding = Verify(TwoFragments(0, 1580)).Finding("fragment-gap");
  const std::string message = finding["places"][0]["message"];
  EXPECT_EQ(message.find("it begins 1.5 s behind the end"), 0u) << message;
}

// Seek tables count differently; as long as one way of counting finds a key sample, it is noted.
TEST(VerifyFragments, OtherWaysToCountAreOnlyNoted) {
  for (const Bytes& file :
       {WithSeekEntry(0, 7, 1, 1), WithSeekEntry(0, 1, 2, 1), WithSeekEntry(0, 1, 1, 1, 2)}) {
    const Verdict verdict = Verify(file);
    EXPECT_EQ(verdict.exitCode, 0) << verdict.json.dump(2);
    EXPECT_EQ(verdict.Finding("tfra-numbers")["severity"], "info");
  }
}

}  // namespace
}  // namespace k7mtest
