// What a program that was built without libcurl says.
#include <gtest/gtest.h>

#include <string>

#include "failure.h"
#include "http_stream.h"

namespace {

TEST(HttpMissing, SaysThatTheProgramWasBuiltWithoutHttp) {
  try {
    qiro::k7m::tool::OpenHttp("http://localhost/clip.mp4");
    FAIL() << "nothing was thrown";
  } catch (const qiro::k7m::tool::Failure& failure) {
    EXPECT_EQ(failure.Code(), qiro::k7m::tool::ExitCode::kFailed);
    const std::string expected = "http://localhost/clip.mp4: this k7m was built without http";
    EXPECT_EQ(std::string(failure.what()).substr(0, expected.size()), expected);
  }
}

}  // namespace
