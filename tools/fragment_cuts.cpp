#include "fragment_cuts.h"

namespace qiro::k7m::tool {

void FragmentCuts::Finder::Add(MediaTime time, MediaTime length) {
  if (!begin) begin = time;
  // Times that go back are refused by the writer.
  if (time.value <= begin->value) return;
  if (IsEarlier({time.value - begin->value, time.scale}, length)) return;
  begin = time;
  cuts.push_back(time);
}

}  // namespace qiro::k7m::tool
