#include "support/capture.h"

#include <gtest/gtest.h>
#include <sstream>

namespace kav::test {

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

void begin_capture() { testing::internal::CaptureStderr(); }

std::vector<std::string> end_capture() {
  return lines_of(testing::internal::GetCapturedStderr());
}

}  // namespace kav::test
