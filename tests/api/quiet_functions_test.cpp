// The functions that only look at what is there: they use neither memory nor the stream, so that
// nothing in them can fail. Together with the sweeps these are all functions of the reading side.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "fragmented_session.h"
#include "support/heap_watch.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

/// Everything that can be had from a reader, taken before anything is counted.
struct Handles {
  QiroK7MReader* reader = nullptr;
  QiroK7MTrack* track = nullptr;
  QiroK7MSampleDescriptor* descriptor = nullptr;
  QiroK7MSample* sample = nullptr;
  QiroK7MTrackIterator* tracks = nullptr;
  QiroK7MSampleDescriptorIterator* descriptors = nullptr;
  QiroK7MSampleIterator* samples = nullptr;
};

struct QuietFunction {
  const char* name;
  QiroK7MError (*call)(const Handles& handles);
};

template <class Out, class Handle>
QiroK7MError Fill(QiroK7MError (*function)(Handle*, Out*), Handle* handle) {
  Out out;
  return function(handle, &out);
}

template <class Handle>
QiroK7MError Copy(QiroK7MError (*function)(Handle*, void*), Handle* handle) {
  std::array<uint8_t, 512> buffer;
  return function(handle, buffer.data());
}

template <class Handle>
QiroK7MError Release(void (*function)(Handle*), Handle* handle) {
  function(handle);
  return 0;
}

QiroK7MError IsText(const char* text) { return text != nullptr && *text != 0 ? 0 : 99; }

/// In an order in which they can be called: what is released is not used behind that.
constexpr QuietFunction kQuietFunctions[] = {
    {"QiroK7MReaderGetDocInfo",
     [](const Handles& h) { return Fill(QiroK7MReaderGetDocInfo, h.reader); }},
    {"QiroK7MTrackIteratorHasMoreEntries",
     [](const Handles& h) { return Fill(QiroK7MTrackIteratorHasMoreEntries, h.tracks); }},
    {"QiroK7MTrackIteratorGetNextEntry",
     [](const Handles& h) { return Fill(QiroK7MTrackIteratorGetNextEntry, h.tracks); }},
    {"QiroK7MTrackGetInfo", [](const Handles& h) { return Fill(QiroK7MTrackGetInfo, h.track); }},
    {"QiroK7MTrackGetEntriesInfo",
     [](const Handles& h) { return Fill(QiroK7MTrackGetEntriesInfo, h.track); }},
    {"QiroK7MTrackGetEditCount",
     [](const Handles& h) { return Fill(QiroK7MTrackGetEditCount, h.track); }},
    {"QiroK7MSampleDescriptorIteratorHasMoreEntries",
     [](const Handles& h) {
       return Fill(QiroK7MSampleDescriptorIteratorHasMoreEntries, h.descriptors);
     }},
    {"QiroK7MSampleDescriptorIteratorGetNextEntry",
     [](const Handles& h) {
       return Fill(QiroK7MSampleDescriptorIteratorGetNextEntry, h.descriptors);
     }},
    {"QiroK7MSampleDescriptorGetInfo",
     [](const Handles& h) { return Fill(QiroK7MSampleDescriptorGetInfo, h.descriptor); }},
    {"QiroK7MSampleDescriptorGetVideoInfo",
     [](const Handles& h) { return Fill(QiroK7MSampleDescriptorGetVideoInfo, h.descriptor); }},
    {"QiroK7MSampleDescriptorGetAudioInfo",
     [](const Handles& h) { return Fill(QiroK7MSampleDescriptorGetAudioInfo, h.descriptor); }},
    {"QiroK7MSampleDescriptorGetVorpInfo",
     [](const Handles& h) { return Fill(QiroK7MSampleDescriptorGetVorpInfo, h.descriptor); }},
    {"QiroK7MSampleIteratorHasMoreEntries",
     [](const Handles& h) { return Fill(QiroK7MSampleIteratorHasMoreEntries, h.samples); }},
    {"QiroK7MSampleGetInfo", [](const Handles& h) { return Fill(QiroK7MSampleGetInfo, h.sample); }},
    {"QiroK7MSampleGetTrack",
     [](const Handles& h) { return Fill(QiroK7MSampleGetTrack, h.sample); }},
    {"QiroK7MSampleGetSampleDescriptor",
     [](const Handles& h) { return Fill(QiroK7MSampleGetSampleDescriptor, h.sample); }},
    {"QiroK7MTrackGetEdit",
     [](const Handles& h) {
       QiroK7MEdit edit;
       return QiroK7MTrackGetEdit(h.track, 0, &edit);
     }},
    {"QiroK7MReaderCopyHandlerName",
     [](const Handles& h) { return Copy(QiroK7MReaderCopyHandlerName, h.track); }},
    {"QiroK7MSampleDescriptorCopyCodecHeaderData",
     [](const Handles& h) {
       return Copy(QiroK7MSampleDescriptorCopyCodecHeaderData, h.descriptor);
     }},
    {"QiroK7MGetLibraryVersion", [](const Handles&) { return IsText(QiroK7MGetLibraryVersion()); }},
    {"QiroK7MErrorName", [](const Handles&) { return IsText(QiroK7MErrorName(27)); }},
    {"QiroK7MErrorText", [](const Handles&) { return IsText(QiroK7MErrorText(27)); }},
    {"QiroK7MCreateAllocator",
     [](const Handles&) { return QiroK7MCreateAllocator(nullptr, nullptr, nullptr); }},
    {"QiroK7MCreateIStream",
     [](const Handles&) {
       QiroK7MIStream* stream = nullptr;
       return QiroK7MCreateIStream(nullptr, nullptr, nullptr, &stream);
     }},
    {"QiroK7MCreateIOStream",
     [](const Handles&) {
       QiroK7MIOStream* stream = nullptr;
       return QiroK7MCreateIOStream(nullptr, nullptr, nullptr, &stream);
     }},
    {"QiroK7MReleaseAllocator", [](const Handles&) { return QiroK7MReleaseAllocator(nullptr); }},
    {"QiroK7MReleaseIStream", [](const Handles&) { return QiroK7MReleaseIStream(nullptr); }},
    {"QiroK7MReleaseIOStream", [](const Handles&) { return QiroK7MReleaseIOStream(nullptr); }},
    {"QiroK7MReleaseTrack", [](const Handles& h) { return QiroK7MReleaseTrack(h.track); }},
    {"QiroK7MReleaseSampleDescriptor",
     [](const Handles& h) { return QiroK7MReleaseSampleDescriptor(h.descriptor); }},
    {"QiroK7MReleaseSample",
     [](const Handles& h) { return Release(QiroK7MReleaseSample, h.sample); }},
    {"QiroK7MReleaseSampleIterator",
     [](const Handles& h) { return Release(QiroK7MReleaseSampleIterator, h.samples); }},
    {"QiroK7MReleaseTrackIterator",
     [](const Handles& h) { return Release(QiroK7MReleaseTrackIterator, h.tracks); }},
    {"QiroK7MReleaseSampleDescriptorIterator",
     [](const Handles& h) { return QiroK7MReleaseSampleDescriptorIterator(h.descriptors); }},
};

/// Calls each of the quiet functions behind so many media samples; none may ask for anything.
void ExpectQuiet(OpenedReader& reader, int sampleNumber) {
  Handles handles{.reader = reader.Handle(), .track = reader.TrackAt(0)};
  handles.descriptor = DescriptorsOf(handles.track).at(0);
  ASSERT_EQ(QiroK7MReaderGetTracks(handles.reader, &handles.tracks), 0u);
  ASSERT_EQ(QiroK7MTrackGetSampleDescriptors(handles.track, &handles.descriptors), 0u);
  ASSERT_EQ(QiroK7MReaderGetMediaSamples(handles.reader, nullptr, 0, &handles.samples), 0u);
  for (int i = 0; i < sampleNumber; ++i) {
    QiroK7MReleaseSample(handles.sample);
    ASSERT_EQ(QiroK7MSampleIteratorGetNextEntry(handles.samples, &handles.sample), 0u);
    ASSERT_NE(handles.sample, nullptr);
  }
  for (const QuietFunction& function : kQuietFunctions) {
    const uint64_t calls = reader.Stream().Count(Call::kAny);
    const uint64_t allocations = CountHeap().allocations + reader.Memory().Allocations();
    EXPECT_EQ(function.call(handles), 0u) << function.name;
    EXPECT_EQ(CountHeap().allocations + reader.Memory().Allocations(), allocations)
        << function.name;
    EXPECT_EQ(reader.Stream().Count(Call::kAny), calls) << function.name;
  }
}

TEST(QuietFunctions, UseNeitherMemoryNorTheStream) {
  OpenedReader reader(SessionFile());
  ExpectQuiet(reader, 1);
}

TEST(QuietFunctions, LoadNoFragment) {
  for (const bool hasFragmentAhead : {false, true}) {
    // A sample of the movie box, with which no fragment has been loaded, and one of a fragment.
    for (const int sampleNumber : {1, 6}) {
      OpenedReader reader(RichFragmentedFile(hasFragmentAhead));
      ExpectQuiet(reader, sampleNumber);
      const uint64_t reads = reader.Stream().Count(Call::kRead);
      uint32_t count = 0;
      EXPECT_EQ(QiroK7MTrackGetSampleCount(reader.TrackAt(0), &count), 0u);
      EXPECT_GT(reader.Stream().Count(Call::kRead), reads) << "all had been loaded before";
    }
  }
}

TEST(QuietFunctions, TellOfAnIteratorBetweenFragments) {
  OpenedReader reader(RichFragmentedFile());
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetMediaSamples(reader.Handle(), nullptr, 0, &iterator), 0u);
  int samples = 0;
  for (;; ++samples) {
    const uint64_t calls = reader.Stream().Count(Call::kAny);
    const bool hasMore = HasMore(iterator);
    EXPECT_EQ(reader.Stream().Count(Call::kAny), calls) << "before sample " << samples;
    QiroK7MSample* sample = nullptr;
    if (!hasMore || QiroK7MSampleIteratorGetNextEntry(iterator, &sample) != 0) break;
    QiroK7MReleaseSample(sample);
  }
  EXPECT_EQ(samples, 3 + 14 + 2 + 10);
  QiroK7MReleaseSampleIterator(iterator);
}

// The others
// ------------------------------------------------------------------------------------------

constexpr QiroK7MError kClientCode = 0xABCD1234;

using Names = std::set<std::string>;

/// The questions that use the stream: asked of a fresh reader while each call of the stream fails,
/// they answer with its code. All others must answer as ever.
Names QuestionsThatUseTheStream(const Bytes& file) {
  Names names;
  for (const Question& question : kQuestions) {
    OpenedReader reader(file);
    reader.Stream().FailNth(Call::kAny, 1, kClientCode, true);
    const QiroK7MError result = question.ask(reader.Handle());
    EXPECT_EQ(result, reader.Stream().FaultHit() ? kClientCode : 0u) << question.name;
    if (reader.Stream().FaultHit()) names.insert(question.name);
    reader.Stream().FailNth(Call::kAny, 0, 0);
  }
  return names;
}

TEST(FunctionsThatUseTheStream, OfAPlainDocument) {
  EXPECT_EQ(QuestionsThatUseTheStream(SessionFile()),
            Names({"QiroK7MSampleCopyData", "QiroK7MReaderGetUlbDataLength",
                   "QiroK7MReaderCopyUlbData", "QiroK7MReaderCopyUlbData, twice"}));
}

TEST(FunctionsThatUseTheStream, OfAFragmentedDocumentAlsoLoadFragments) {
  const Names names = {"QiroK7MReaderGetSamples",
                       "QiroK7MReaderGetSamplesByTracks",
                       "QiroK7MReaderGetSamplesByMediaTypes",
                       "QiroK7MReaderGetAllSamples",
                       "QiroK7MReaderGetAllSamplesByTracks",
                       "QiroK7MReaderGetAllSamplesByMediaTypes",
                       "QiroK7MTrackGetSampleCount",
                       "QiroK7MSampleIteratorGetNextEntry",
                       "QiroK7MSampleCopyData",
                       "QiroK7MReaderGetUlbDataLength",
                       "QiroK7MReaderCopyUlbData",
                       "QiroK7MReaderCopyUlbData, twice"};
  EXPECT_EQ(QuestionsThatUseTheStream(FragmentedSessionFile()), names);
  EXPECT_EQ(QuestionsThatUseTheStream(UnusualSessionFile()), names);
}

TEST(QuietFunctions, ClosingAReaderTakesNoMemoryAndReadsNothing) {
  for (const Bytes& file : {SessionFile(), FragmentedSessionFile(), RichFragmentedFile()}) {
    OpenedReader reader(file);
    const uint64_t calls = reader.Stream().Count(Call::kAny);
    const uint64_t allocations = CountHeap().allocations + reader.Memory().Allocations();
    reader.Close();
    EXPECT_EQ(CountHeap().allocations + reader.Memory().Allocations(), allocations);
    EXPECT_EQ(reader.Stream().Count(Call::kAny), calls + 1);
    EXPECT_EQ(reader.Stream().Count(Call::kClose), 1u);
  }
}

/// The exported names that belong to reading, or those that do not: to writing and to the servicer.
std::set<std::string> ExportedFunctions(bool isReading) {
  std::ifstream list(K7M_EXPORTS);
  std::set<std::string> names;
  for (std::string word; list >> word;) {
    const bool isOther = word.find("Writer") != std::string::npos ||
                         word == "QiroK7MDocCreateNew;" || word.find("QiroK7R") == 0;
    if (word.find("Qiro") == 0 && word.back() == ';' && isOther != isReading) {
      names.insert(word.substr(0, word.size() - 1));
    }
  }
  return names;
}

/// A source of the tests as one text.
std::string SourceOf(const char* path) {
  std::ifstream file(std::string(K7M_TESTS) + "/" + path);
  EXPECT_TRUE(file.is_open()) << path;
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

TEST(EveryReadingFunction, IsSweptOrQuiet) {
  // These four are swept by tests of their own.
  std::set<std::string> swept = {"QiroK7MDocIsK7M", "QiroK7MDocOpenForRead",
                                 "QiroK7MDocOpenForReadWithOptions", "QiroK7MCloseReader"};
  for (const Question& question : kQuestions) {
    const std::string name = question.name;
    swept.insert(name.substr(0, name.find(',')));
  }
  for (const QuietFunction& function : kQuietFunctions) swept.insert(function.name);
  EXPECT_EQ(swept, ExportedFunctions(true));
}

// These are swept in whole sessions; each must be called in the source of one.
TEST(EveryOtherFunction, IsCalledInASweptSession) {
  std::string sessions;
  for (const char* path :
       {"api/writer_script.cpp", "query/faults_test.cpp", "writer/description_faults_test.cpp",
        "writer/fragment_faults_test.cpp", "writer/k7r_fault_session.h"}) {
    sessions += SourceOf(path);
  }
  const std::set<std::string> functions = ExportedFunctions(false);
  EXPECT_FALSE(functions.empty());
  for (const std::string& name : functions) {
    EXPECT_NE(sessions.find(name + "("), std::string::npos) << name << " is swept nowhere";
  }
}

}  // namespace
}  // namespace k7mtest
