#include "fault_sweep.h"

#include <openssl/err.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <new>
#include <sstream>

#include "child_process.h"
#include "counted_allocations.h"
#include "support/fake_server.h"

namespace halvex_test {
namespace {

// A run that takes longer hangs. Creating a key on a busy machine under a sanitizer takes its time.
constexpr unsigned int longest_run_seconds = 120;
// A block that libcrypto keeps for itself is kept once; one that is lost is lost again each time.
constexpr int repetitions_of_a_leak = 4;

// A request that does not come.
constexpr std::size_t never = std::numeric_limits<std::size_t>::max();

// What parent and child share: how far the child came.
struct Progress {
  std::atomic<std::size_t> requests;
  std::atomic<std::size_t> nth;
  std::atomic<std::size_t> faults;
  std::atomic<bool> finished;
};

class Shared_progress {
 public:
  Shared_progress()
      : memory_{mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                     -1, 0)} {
    progress_ = new (memory_) Progress{};
  }
  ~Shared_progress() { munmap(memory_, sizeof(Progress)); }
  Shared_progress(const Shared_progress &) = delete;
  Shared_progress &operator=(const Shared_progress &) = delete;
  Progress *operator->() { return progress_; }

 private:
  void *memory_;
  Progress *progress_;
};

// One child's sweep over a piece of work.
class Sweeper {
 public:
  Sweeper(const Work &work, const Sweep &plan) : work_{work}, plan_{plan} {}

  // How many requests one run makes.
  std::size_t count_requests() {
    arm_faults(plan_.source, plan_.mode, never);
    work_.run();
    disarm_faults();
    return requests_since_armed();
  }

  // Runs with the nth request failing; returns whether that fault was injected.
  bool run_with_fault(std::size_t nth) {
    nth_ = nth;
    alarm(longest_run_seconds);
    const long cxx_before = live_cxx_blocks();
    const long server_before = open_lines() + open_buffers();
    const long libcrypto_before = live_libcrypto_blocks();
    arm_faults(plan_.source, plan_.mode, nth);
    work_.run();
    const bool injected = disarm_faults();

    report_unless(live_cxx_blocks() == cxx_before, "C++ memory was not released");
    report_unless(open_lines() + open_buffers() == server_before, "server memory was not released");
    if (live_libcrypto_blocks() > libcrypto_before) {
      look_for_leak();
    }
    report_unless(ERR_peek_error() == 0, "the OpenSSL queue is not empty");
    report(work_.mismatch(injected));
    return injected;
  }

  void run_without_fault() {
    work_.run();
    report(work_.mismatch(false));
    report_unless(ERR_peek_error() == 0, "the OpenSSL queue is not empty after the next run");
  }

 private:
  void look_for_leak() {
    for (int repetition = 0; repetition < repetitions_of_a_leak; ++repetition) {
      const long before = live_libcrypto_blocks();
      arm_faults(plan_.source, plan_.mode, nth_);
      work_.run();
      disarm_faults();
      if (live_libcrypto_blocks() <= before) {
        return;
      }
    }
    report("libcrypto memory is lost each time");
  }

  void report(const char *mismatch) {
    if (mismatch != nullptr) {
      report_line(nth_, mismatch);
    }
  }

  void report_unless(bool fine, const char *mismatch) { report(fine ? nullptr : mismatch); }

  const Work &work_;
  const Sweep &plan_;
  std::size_t nth_ = 0;
};

// The fault that comes after the nth. The first one is the one after fault 0.
std::size_t next_fault(std::size_t nth, std::size_t requests, const Work &work, const Sweep &plan) {
  const std::size_t tail_start = requests > plan.tail ? requests - plan.tail : 0;
  if (plan.spread == 0 || requests < plan.spread || nth >= tail_start) {
    return nth + 1;
  }
  const std::size_t step = requests / plan.spread;
  const std::size_t next = nth == 0 ? 1 + std::hash<std::string>{}(work.name) % step : nth + step;
  return std::min(next, tail_start + 1);
}

void sweep_after(std::size_t nth, const Work &work, const Sweep &plan, Shared_progress &progress) {
  Sweeper sweeper{work, plan};
  progress->requests = sweeper.count_requests();
  bool injected = true;
  while (injected) {
    nth = next_fault(nth, progress->requests, work, plan);
    progress->nth = nth;
    injected = sweeper.run_with_fault(nth);
    if (injected) {
      ++progress->faults;
      sweeper.run_without_fault();
    }
  }
  progress->finished = true;
}

}  // namespace

Sweep_result sweep(const Work &work, const Sweep &plan) {
  Sweep_result result;
  Shared_progress progress;
  std::size_t nth = 0;
  while (!progress->finished) {
    const Child_end end =
        run_in_child(longest_run_seconds, [&] { sweep_after(nth, work, plan, progress); });
    std::istringstream lines{end.report};
    for (std::string line; !end.crashed && std::getline(lines, line);) {
      result.mismatches.push_back(work.name + ", fault " + line);
    }
    if (end.crashed) {
      result.crashes.push_back(work.name + ", fault " + std::to_string(progress->nth) +
                               ": signal " + std::to_string(end.signal) + "\n" + end.report);
      ++progress->faults;
      nth = progress->nth;
    }
  }
  result.requests = progress->requests;
  result.faults = progress->faults;
  return result;
}

}  // namespace halvex_test
