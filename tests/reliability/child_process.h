// Runs part of a test in a child process, so that a crash ends the child alone and reports where it
// happened.

#ifndef RELIABILITY_CHILD_PROCESS_H
#define RELIABILITY_CHILD_PROCESS_H

#include <cstddef>
#include <functional>
#include <string>

namespace halvex_test {

struct Child_end {
  bool crashed = false;
  int signal = 0;      // that ended the child, 0 if it ended by itself
  std::string report;  // what the child wrote with `report_line`, and the stack of a crash
};

// Forks and runs `work` in the child, which then ends without running destructors or exit handlers.
// A child that takes longer than `seconds` is ended by SIGALRM and counts as crashed. The caller
// must have no other threads.
[[nodiscard]] Child_end run_in_child(unsigned int seconds, const std::function<void()> &work);

// In a child: adds the line "<number>: <text>" to the report. Allocates nothing.
void report_line(std::size_t number, const char *text);

}  // namespace halvex_test

#endif  // RELIABILITY_CHILD_PROCESS_H
