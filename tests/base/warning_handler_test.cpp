#include "base/warning_handler.h"

#include <gtest/gtest.h>

#include "base/client_streams.h"
#include "internals/error_of.h"
#include "support/memory_stream.h"
#include "support/warning_recorder.h"

namespace qiro::k7m::impl {
namespace {

using k7mtest::ErrorOf;
using k7mtest::MemoryStream;
using k7mtest::WarningRecorder;
using Codes = std::vector<QiroK7MError>;

TEST(WarningHandler, WithoutARecordWarningsAreIgnored) {
  EXPECT_NO_THROW(WarningHandler().RaiseWarning(3073));
  EXPECT_NO_THROW(WarningHandler(nullptr).RaiseWarning(3073));
}

TEST(WarningHandler, WithoutACallbackWarningsAreIgnored) {
  const QiroK7MWarningHandlerCallBacks record;
  EXPECT_EQ(record.size, 24U);
  EXPECT_EQ(record.clientData, nullptr);
  EXPECT_EQ(record.warningCallback, nullptr);
  EXPECT_NO_THROW(WarningHandler(&record).RaiseWarning(3073));
}

TEST(WarningHandler, PassesTheCodeAndTheClientData) {
  WarningRecorder recorder;
  const QiroK7MWarningHandlerCallBacks record = recorder.Record();
  const WarningHandler handler(&record);
  handler.RaiseWarning(3074);
  handler.RaiseWarning(3077);
  EXPECT_EQ(recorder.Seen(), (Codes{3074, 3077}));
}

TEST(WarningHandler, AnAnswerOfZeroAborts) {
  WarningRecorder recorder;
  recorder.RefuseNth(2);
  const QiroK7MWarningHandlerCallBacks record = recorder.Record();
  const WarningHandler handler(&record);
  EXPECT_EQ(ErrorOf([&] { handler.RaiseWarning(3073); }), 0U);
  EXPECT_EQ(ErrorOf([&] { handler.RaiseWarning(3073); }), 1028U);
}

TEST(WarningHandler, AnyOtherAnswerGoesOn) {
  for (const int32_t answer : {1, -1, 2, INT32_MIN, INT32_MAX}) {
    int32_t value = answer;
    QiroK7MWarningHandlerCallBacks record;
    record.clientData = &value;
    record.warningCallback = [](void* data, QiroK7MError) { return *static_cast<int32_t*>(data); };
    EXPECT_NO_THROW(WarningHandler(&record).RaiseWarning(3073)) << answer;
  }
}

TEST(WarningHandler, IsACopyOfTheRecord) {
  WarningRecorder recorder;
  QiroK7MWarningHandlerCallBacks record = recorder.Record();
  const WarningHandler handler(&record);
  record.warningCallback = nullptr;
  record.clientData = nullptr;
  handler.RaiseWarning(3075);
  EXPECT_EQ(recorder.Seen(), Codes{3075});
}

TEST(WarningHandler, AStreamRaisesThroughItsOwn) {
  WarningRecorder recorder;
  const QiroK7MWarningHandlerCallBacks record = recorder.Record();
  MemoryStream memory;
  QiroK7MIStream stream(memory.Reading(), WarningHandler(&record));
  stream.RaiseWarning(3073);
  stream.RaiseWarningIf(0, 3074);
  stream.RaiseWarningIf(1, 3075);
  stream.RaiseWarningIf(0x80000000U, 3076);
  EXPECT_EQ(recorder.Seen(), (Codes{3073, 3075, 3076}));
}

TEST(WarningHandler, AReadWriteStreamHasNone) {
  MemoryStream memory;
  const QiroK7MIOStream stream(memory.ReadingAndWriting());
  EXPECT_NO_THROW(stream.RaiseWarning(3073));
}

}  // namespace
}  // namespace qiro::k7m::impl
