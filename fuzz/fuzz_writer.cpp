// Calls of a writer. The file must hold what was taken.
#include "writer_session.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace k7mfuzz;
  Choices choices(data, size);
  WriterSession session(static_cast<DocumentKind>(choices.Byte() % 3), choices);
  session.Run();
  session.FinishAndJudge();
  return 0;
}
