#pragma once

#include <string>
#include <vector>

namespace kav::test {

// Splits captured output into lines, dropping the final line end.
std::vector<std::string> lines_of(const std::string& text);

// Runs `action` with standard error captured; returns the lines written.
template <class Action>
std::vector<std::string> stderr_of(Action&& action);

void begin_capture();
std::vector<std::string> end_capture();

template <class Action>
std::vector<std::string> stderr_of(Action&& action) {
  begin_capture();
  try {
    action();
  } catch (...) {
    end_capture();
    throw;
  }
  return end_capture();
}

}  // namespace kav::test
