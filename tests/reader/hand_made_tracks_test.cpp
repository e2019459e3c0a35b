// Box trees that no file can give, because a file without these boxes is refused when it is opened:
// the classes answer for themselves all the same.
#include <gtest/gtest.h>

#include <cstring>

#include "boxes/box_factory.h"
#include "boxes/media_boxes.h"
#include "boxes/stbl_box.h"
#include "boxes/track.h"
#include "internals/document.h"
#include "reader/reader.h"
#include "reader/sample_table_cursor.h"
#include "support/movie_builder.h"

namespace k7mtest {
namespace {

using BoxPointer = std::unique_ptr<impl::Box>;

/// Boxes that were never read.
class HandMade : public ::testing::Test {
 protected:
  template <class... Children>
  BoxPointer Make(const char* code, Children... children) {
    const impl::BoxHeader header(k7mtest::Code(code));
    BoxPointer box =
        impl::BoxFactory::Instance().CreateBox(&document_.Opened().Stream(), header, nullptr);
    (box->AddChildBox(std::move(children)), ...);
    return box;
  }
  /// A track over a 'trak' with these children.
  template <class... Children>
  impl::Track TrackWith(Children... children) {
    trak_ = Make("trak", std::move(children)...);
    return {static_cast<impl::TrakBox*>(trak_.get()), &document_.Root()};
  }
  /// A track whose 'stbl' has an empty table of each of these types.
  impl::Track TrackWithTables(const std::vector<std::string>& codes) {
    BoxPointer stbl = Make("stbl");
    for (const std::string& code : codes) stbl->AddChildBox(Make(code.c_str()));
    return TrackWith(Make("mdia", Make("minf", std::move(stbl))));
  }

  Document document_{MinimalMoov()};
  BoxPointer trak_;
};

TEST_F(HandMade, ATrackWithoutADescriptionTableHasNoDescriptors_Error7) {
  const auto expectError7 = [](const impl::Track& track) {
    EXPECT_EQ(ErrorOf([&] { track.GetSampleDescriptorCollection(); }),
              kQiroK7MErrorNoSampleDescriptionBox);
    EXPECT_EQ(track.GetEntriesInfo().sampleDescriptorCount, 0u);
  };
  expectError7(TrackWith());
  expectError7(TrackWith(Make("mdia")));
  expectError7(TrackWith(Make("mdia", Make("minf"))));
  expectError7(TrackWithTables({"stts"}));
  const impl::Track track = TrackWithTables({"stsd"});
  EXPECT_EQ(ErrorOf([&] { EXPECT_FALSE(track.GetSampleDescriptorCollection()->HasMore()); }), 0u);
}

TEST_F(HandMade, ATrackThatLacksATableCannotBeIterated_Error12) {
  const std::vector<std::string> all = {"stts", "stsc", "stsz", "stco"};
  const auto result = [this](const std::vector<std::string>& codes) {
    const impl::Track track = TrackWithTables(codes);
    return ErrorOf([&] { impl::SampleTableCursor cursor(track); });
  };
  EXPECT_EQ(result(all), 0u);
  EXPECT_EQ(result({"stts", "stsc", "stsz", "co64"}), 0u);
  for (size_t missing = 0; missing < all.size(); ++missing) {
    std::vector<std::string> codes = all;
    codes.erase(codes.begin() + static_cast<std::ptrdiff_t>(missing));
    EXPECT_EQ(result(codes), kQiroK7MErrorIncompleteSampleTable) << "without " << all[missing];
  }
  EXPECT_EQ(result({}), kQiroK7MErrorIncompleteSampleTable);
}

TEST_F(HandMade, ATrackWithoutAMediaHeaderHasNoTimeScaleNoDurationAndNoLanguage) {
  const auto expectNothing = [](const impl::Track& track) {
    EXPECT_EQ(track.GetTimeScale(), 0u);
    EXPECT_EQ(track.GetInfo().duration, 0u);
    constexpr char kNoLanguage[4] = {};
    EXPECT_EQ(std::memcmp(track.GetInfo().language, kNoLanguage, 4), 0);
    EXPECT_EQ(track.GetInfo().size, sizeof(QiroK7MTrackInfo));
  };
  OpenedStream file(FullBox("tkhd", 0, 7, Tkhd{.duration = 500}));
  BoxPointer tkhd = impl::BoxFactory::Instance().CreateBox(
      &file.Stream(), *impl::BoxHeader::Parse(file.Stream(), nullptr), nullptr);
  tkhd->CompleteRead(&document_.Root(), true);
  expectNothing(TrackWith());
  expectNothing(TrackWith(std::move(tkhd), Make("mdia", Make("minf"))));
  EXPECT_EQ(static_cast<impl::TrakBox*>(trak_.get())->GetDurationInMovieTS(), 500u);
  expectNothing(TrackWith(Make("mdia", Make("hdlr"))));
  // With one the language is unpacked even when it is 0.
  EXPECT_STREQ(TrackWith(Make("mdia", Make("mdhd"))).GetInfo().language, "```");
}

TEST(HandMadeReader, AMovieWithoutItsHeaderHasNoDocumentInformation_Error22) {
  Movie movie;
  movie.tracks.push_back({.samples = SomeSamples(1)});
  MemoryStream memory(BuildMovie(movie).bytes);
  impl::Reader reader(
      std::make_unique<impl::QiroK7MIStream>(memory.Reading(), impl::WarningHandler()), 0, nullptr);
  EXPECT_EQ(ErrorOf([&] { EXPECT_EQ(reader.GetDocInfo().timeScale, 1000u); }), 0u);
  // An empty movie box takes the place of the one that was parsed.
  impl::MoovBox* const moov = reader.GetK7MDocument()->GetRootBox()->GetMoovBox();
  const impl::BoxHeader header(moov->GetBoxHeader());
  moov->~MoovBox();
  ::new (static_cast<void*>(moov)) impl::MoovBox(nullptr, header, nullptr);
  EXPECT_EQ(ErrorOf([&] { reader.GetDocInfo(); }), kQiroK7MErrorNoMovieHeader);
}

}  // namespace
}  // namespace k7mtest
