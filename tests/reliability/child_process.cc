#include "child_process.h"

#include <execinfo.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/sanitizers.h"

namespace halvex_test {
namespace {

int report_pipe = -1;

void write_all(const char *text, std::size_t length) {
  while (length > 0) {
    const ssize_t written = write(report_pipe, text, length);
    if (written <= 0) {
      return;
    }
    text += written;
    length -= static_cast<std::size_t>(written);
  }
}

// The stack of the crash goes into the report; the signal then ends the child as it would have.
void report_crash(int signal_number) {
  std::array<void *, 64> frames{};
  const int depth = backtrace(frames.data(), static_cast<int>(frames.size()));
  backtrace_symbols_fd(frames.data(), depth, report_pipe);
  static_cast<void>(std::signal(signal_number, SIG_DFL));
  static_cast<void>(std::raise(signal_number));
}

// `backtrace` loads a library on its first call, which a crash handler must not do. The sanitizers
// report crashes themselves.
void install_crash_handlers() {
  std::array<void *, 2> frames{};
  backtrace(frames.data(), static_cast<int>(frames.size()));
  if (!under_address_sanitizer && !under_thread_sanitizer) {
    for (const int signal_number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
      static_cast<void>(std::signal(signal_number, report_crash));
    }
  }
  static_cast<void>(std::signal(SIGALRM, report_crash));
}

std::string read_all(int descriptor) {
  std::string text;
  std::array<char, 4096> block{};
  ssize_t got = 0;
  while ((got = read(descriptor, block.data(), block.size())) > 0 || (got < 0 && errno == EINTR)) {
    text.append(block.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  }
  return text;
}

}  // namespace

Child_end run_in_child(unsigned int seconds, const std::function<void()> &work) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return {true, 0, "pipe2 failed"};
  }
  static_cast<void>(std::fflush(nullptr));
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    report_pipe = ends[1];
    install_crash_handlers();
    alarm(seconds);
    work();
    _exit(EXIT_SUCCESS);
  }
  close(ends[1]);
  Child_end end;
  end.report = read_all(ends[0]);
  close(ends[0]);
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) {
    end.crashed = true;
    return end;
  }
  end.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  end.crashed = !WIFEXITED(status) || WEXITSTATUS(status) != EXIT_SUCCESS;
  return end;
}

void report_line(std::size_t number, const char *text) {
  std::array<char, 256> line{};
  static_cast<void>(std::snprintf(line.data(), line.size(), "%zu: %s\n", number, text));
  write_all(line.data(), std::strlen(line.data()));
}

}  // namespace halvex_test
