#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include "dovrin_host/error_log.h"

namespace dovrin_host {
namespace {

std::string system_error_text(int error) { return std::generic_category().message(error); }

// Returns how many bytes went out, and sets `error` (0 if all did).
std::size_t write_all(int descriptor, std::string_view bytes, int &error) {
  std::size_t written = 0;
  error = 0;
  while (written < bytes.size()) {
    const ssize_t step = ::write(descriptor, bytes.data() + written, bytes.size() - written);
    if (step > 0) {
      written += static_cast<std::size_t>(step);
    } else if (step == 0 || errno != EINTR) {
      error = step == 0 ? EIO : errno;
      break;
    }
  }
  return written;
}

}  // namespace

Result<std::shared_ptr<Line_sink>> Line_sink::to_file(const std::string &path,
                                                      Record_renderer render) {
  constexpr mode_t owner_only = 0600;
  const int descriptor =
      ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, owner_only);
  if (descriptor < 0) {
    return Status::failure("Cannot open the log file '" + path + "': " + system_error_text(errno) +
                           ".");
  }
  return std::shared_ptr<Line_sink>{
      new Line_sink{descriptor, true, "the log file '" + path + "'", render}};
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
  const std::size_t written = write_all(descriptor_, line, error);
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
