#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>
#include <string_view>
#include <system_error>
#include <utility>

#include "dovrin_host/error_log.h"

namespace dovrin_host {
namespace {

std::string system_error_text(int error) { return std::generic_category().message(error); }

// Blocks SIGPIPE and SIGXFSZ on this thread, which a write can raise and which would end the
// program.
class Blocked_signals {
 public:
  Blocked_signals() {
    sigset_t signals{};
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    sigaddset(&signals, SIGXFSZ);
    sigpending(&pending_before_);
    pthread_sigmask(SIG_BLOCK, &signals, &previous_);
  }
  Blocked_signals(const Blocked_signals &) = delete;
  Blocked_signals &operator=(const Blocked_signals &) = delete;
  ~Blocked_signals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

  // Takes back the signal of a write that failed. A signal that was pending before stays.
  void discard_signal_of(int error) const {
    const int signal = error == EPIPE ? SIGPIPE : SIGXFSZ;
    if ((error == EPIPE || error == EFBIG) && sigismember(&pending_before_, signal) == 0) {
      sigset_t raised{};
      sigemptyset(&raised);
      sigaddset(&raised, signal);
      const timespec no_wait{};
      sigtimedwait(&raised, nullptr, &no_wait);
    }
  }

 private:
  sigset_t pending_before_{};
  sigset_t previous_{};
};

// True if a write to the descriptor returns at once, be it with an error. A signal interrupts a
// poll without waiting time only where nothing is ready.
bool is_ready(int descriptor) {
  pollfd request{descriptor, POLLOUT, 0};
  return ::poll(&request, 1, 0) > 0;
}

// Returns how many bytes went out, and sets `error` (0 if all did, EAGAIN if the rest would have
// to wait). `may_block`: the descriptor is in blocking mode.
std::size_t write_all(int descriptor, bool may_block, std::string_view bytes, int &error) {
  const Blocked_signals signals;
  // What poll promises of a pipe.
  const std::size_t longest_step = may_block ? PIPE_BUF : bytes.size();
  std::size_t written = 0;
  error = 0;
  while (written < bytes.size()) {
    if (may_block && !is_ready(descriptor)) {
      error = EAGAIN;
      break;
    }
    const std::size_t length = std::min(longest_step, bytes.size() - written);
    errno = EIO;  // the error of a write that takes nothing and reports none
    const ssize_t step = ::write(descriptor, bytes.data() + written, length);
    if (step > 0) {
      written += static_cast<std::size_t>(step);
    } else if (errno != EINTR) {
      error = errno;
      signals.discard_signal_of(error);
      break;
    }
  }
  return written;
}

Status cannot_open(const std::string &path, const std::string &reason) {
  return Status::failure("Cannot open the log file '" + path + "': " + reason + ".");
}

// Leaves a regular file to its owner alone. Returns 0 or an error number.
int narrow_permissions(int descriptor) {
  struct stat information {};
  if (::fstat(descriptor, &information) != 0) {
    return errno;
  }
  constexpr mode_t of_others = S_IRWXG | S_IRWXO;
  if (!S_ISREG(information.st_mode) || (information.st_mode & of_others) == 0) {
    return 0;
  }
  return ::fchmod(descriptor, information.st_mode & S_IRWXU) == 0 ? 0 : errno;
}

}  // namespace

Result<std::shared_ptr<Line_sink>> Line_sink::to_file(const std::string &path,
                                                      Record_renderer render) {
  constexpr mode_t owner_only = 0600;
  // Without O_NONBLOCK, opening a FIFO waits for a reader and writing to it for room.
  const int descriptor = ::open(
      path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, owner_only);
  if (descriptor < 0) {
    return cannot_open(path, errno == ENXIO ? "it is a FIFO that nobody reads, a socket or a "
                                              "missing device"
                                            : system_error_text(errno));
  }
  std::shared_ptr<Line_sink> sink{
      new Line_sink{descriptor, true, "the log file '" + path + "'", render}};
  if (const int error = narrow_permissions(descriptor); error != 0) {
    return cannot_open(path, "other users have access to it, which cannot be taken away: " +
                                 system_error_text(error));
  }
  return sink;
}

std::shared_ptr<Line_sink> Line_sink::to_descriptor(int descriptor, Record_renderer render) {
  return std::shared_ptr<Line_sink>{
      new Line_sink{descriptor, false, "the descriptor " + std::to_string(descriptor), render}};
}

Line_sink::Line_sink(int descriptor, bool owned, std::string name, Record_renderer render)
    : descriptor_{descriptor}, owned_{owned}, name_{std::move(name)}, render_{render} {}

Line_sink::~Line_sink() {
  if (owned_) {
    ::close(descriptor_);
  }
}

Status Line_sink::write(const Log_record &record) {
  std::string line = render_(record);
  line += '\n';

  const std::lock_guard lock{mutex_};
  if (inside_line_) {
    line.insert(0, 1, '\n');
  }
  int error = 0;
  const std::size_t written = write_all(descriptor_, !owned_, line, error);
  if (written > 0) {
    inside_line_ = line[written - 1] != '\n';
  }
  return error == 0
             ? Status{}
             : Status::failure("Cannot write to " + name_ + ": " + system_error_text(error) + ".");
}

Ring_sink::Ring_sink(std::size_t capacity) : capacity_{std::max<std::size_t>(capacity, 1)} {}

Status Ring_sink::write(const Log_record &record) {
  const std::lock_guard lock{mutex_};
  records_.push_back({last_sequence_ + 1, record});
  ++last_sequence_;
  if (records_.size() > capacity_) {
    records_.pop_front();
  }
  return {};
}

std::vector<Numbered_record> Ring_sink::snapshot() const {
  const std::lock_guard lock{mutex_};
  return {records_.begin(), records_.end()};
}

}  // namespace dovrin_host
