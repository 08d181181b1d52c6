#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "dovrin_host/error_log.h"
#include "records.h"
#include "support/fixture.h"
#include "support/temporary_folder.h"

namespace dovrin_host {
namespace {

using halvex_test::file_bytes;
using halvex_test::Temporary_folder;

// Keeps files of this process below a size while it lives.
class File_size_limit {
 public:
  explicit File_size_limit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &previous_);
    const rlimit limit{bytes, previous_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  File_size_limit(const File_size_limit &) = delete;
  File_size_limit &operator=(const File_size_limit &) = delete;
  ~File_size_limit() { setrlimit(RLIMIT_FSIZE, &previous_); }

 private:
  rlimit previous_{};
};

TEST(LineSink, FileGetsOneLinePerRecordAfterWhatItHad) {
  const Temporary_folder folder;
  const std::string path = folder / "error.log";
  std::ofstream{path} << "earlier\n";

  auto sink = Line_sink::to_file(path, render_json);
  ASSERT_TRUE(sink.ok()) << sink.message();
  EXPECT_TRUE(sink.value()->write(sample_record("a")).ok());
  EXPECT_TRUE(sink.value()->write(sample_record("b")).ok());

  EXPECT_EQ(file_bytes(path), "earlier\n" + render_json(sample_record("a")) + '\n' +
                                  render_json(sample_record("b")) + '\n');
}

TEST(LineSink, NewFileIsForItsOwnerOnly) {
  const Temporary_folder folder;
  const std::string path = folder / "error.log";
  ASSERT_TRUE(Line_sink::to_file(path, render_json).ok());
  struct stat information {};
  ASSERT_EQ(stat(path.c_str(), &information), 0);
  EXPECT_EQ(information.st_mode & 0777U, 0600U);
}

TEST(LineSink, ExistingFileIsNarrowedToItsOwner) {
  const Temporary_folder folder;
  const std::string path = folder / "error.log";
  std::ofstream{path} << "earlier\n";
  ASSERT_EQ(chmod(path.c_str(), 0664), 0);
  ASSERT_TRUE(Line_sink::to_file(path, render_json).ok());
  struct stat information {};
  ASSERT_EQ(stat(path.c_str(), &information), 0);
  EXPECT_EQ(information.st_mode & 0777U, 0600U);
  EXPECT_EQ(file_bytes(path), "earlier\n");
}

TEST(LineSink, FileThatOtherUsersKeepIsRejected) {
  constexpr uid_t other_user = 65534;
  const Temporary_folder folder;
  const std::string path = folder / "error.log";
  std::ofstream{path} << "earlier\n";
  ASSERT_EQ(chmod(path.c_str(), 0666), 0);
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  if (seteuid(other_user) != 0) {
    GTEST_SKIP() << "only root can become another user";
  }
  const auto sink = Line_sink::to_file(path, render_json);
  ASSERT_EQ(seteuid(0), 0);
  ASSERT_FALSE(sink.ok());
  EXPECT_EQ(sink.message(), "Cannot open the log file '" + path +
                                "': other users have access to it, which cannot be taken away: "
                                "Operation not permitted.");
}

TEST(LineSink, FifoWithoutReaderIsRejected) {
  const Temporary_folder folder;
  const std::string path = folder / "fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const auto sink = Line_sink::to_file(path, render_json);
  ASSERT_FALSE(sink.ok());
  EXPECT_EQ(sink.message(), "Cannot open the log file '" + path +
                                "': it is a FIFO that nobody reads, a socket or a missing device.");
}

TEST(LineSink, FifoGetsRecordsAgainWhenItsReaderReturns) {
  const Temporary_folder folder;
  const std::string path = folder / "fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const auto open_reader = [&] { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); };
  int reader = open_reader();
  const auto sink = Line_sink::to_file(path, render_line);
  ASSERT_TRUE(sink.ok()) << sink.message();
  EXPECT_TRUE(sink.value()->write(sample_record("a")).ok());
  close(reader);
  EXPECT_EQ(sink.value()->write(sample_record("b")).message(),
            "Cannot write to the log file '" + path + "': Broken pipe.");

  reader = open_reader();
  EXPECT_TRUE(sink.value()->write(sample_record("c")).ok());
  std::array<char, 1000> text{};
  const ssize_t length = read(reader, text.data(), text.size());
  close(reader);
  ASSERT_GT(length, 0);
  EXPECT_EQ(std::string(text.data(), static_cast<std::size_t>(length)),
            render_line(sample_record("a")) + '\n' + render_line(sample_record("c")) + '\n');
}

// A pipe, closed with its object.
struct Pipe {
  Pipe() { EXPECT_EQ(pipe(ends.data()), 0); }
  Pipe(const Pipe &) = delete;
  Pipe &operator=(const Pipe &) = delete;
  ~Pipe() {
    close_reader();
    close(ends[1]);
  }

  void close_reader() {
    if (ends[0] >= 0) {
      close(ends[0]);
      ends[0] = -1;
    }
  }

  int writer() const { return ends[1]; }

  std::array<int, 2> ends{};
};

TEST(LineSink, DescriptorWhoseReaderLeftRaisesNoSignal) {
  Pipe pipe;
  const auto sink = Line_sink::to_descriptor(pipe.writer(), render_line);
  pipe.close_reader();
  EXPECT_EQ(sink->write(sample_record()).message(),
            "Cannot write to the descriptor " + std::to_string(pipe.writer()) + ": Broken pipe.");
}

TEST(LineSink, DescriptorThatIsFullIsNotWaitedFor) {
  const Pipe pipe;
  const auto sink = Line_sink::to_descriptor(pipe.writer(), render_line);
  constexpr int more_than_a_pipe_holds = 10000;
  int written = 0;
  while (written < more_than_a_pipe_holds && sink->write(sample_record()).ok()) {
    ++written;
  }
  EXPECT_GT(written, 0);
  EXPECT_EQ(sink->write(sample_record()).message(), "Cannot write to the descriptor " +
                                                        std::to_string(pipe.writer()) +
                                                        ": Resource temporarily unavailable.");
}

TEST(LineSink, SignalsOfTheProgramStay) {
  Pipe pipe;
  const auto sink = Line_sink::to_descriptor(pipe.writer(), render_line);
  pipe.close_reader();
  sigset_t broken_pipe{};
  sigemptyset(&broken_pipe);
  sigaddset(&broken_pipe, SIGPIPE);
  sigset_t previous{};
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &broken_pipe, &previous), 0);
  raise(SIGPIPE);
  EXPECT_FALSE(sink->write(sample_record()).ok());

  sigset_t state{};
  ASSERT_EQ(sigpending(&state), 0);
  EXPECT_EQ(sigismember(&state, SIGPIPE), 1);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &state), 0);
  EXPECT_EQ(sigismember(&state, SIGPIPE), 1);
  EXPECT_EQ(sigismember(&state, SIGXFSZ), 0);

  int taken = 0;
  EXPECT_EQ(sigwait(&broken_pipe, &taken), 0);
  EXPECT_EQ(pthread_sigmask(SIG_SETMASK, &previous, nullptr), 0);
}

TEST(LineSink, FileThatCannotBeOpenedIsNamed) {
  const auto sink = Line_sink::to_file("/nonexistent/error.log", render_json);
  ASSERT_FALSE(sink.ok());
  EXPECT_EQ(sink.message(),
            "Cannot open the log file '/nonexistent/error.log': No such file or directory.");
}

TEST(LineSink, DescriptorGetsLinesAndStaysOpen) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  {
    const auto sink = Line_sink::to_descriptor(ends[1], render_line);
    EXPECT_TRUE(sink->write(sample_record()).ok());
  }
  EXPECT_EQ(write(ends[1], "x", 1), 1);
  std::array<char, 1000> text{};
  const ssize_t length = read(ends[0], text.data(), text.size());
  close(ends[0]);
  close(ends[1]);
  ASSERT_GT(length, 0);
  EXPECT_EQ(std::string(text.data(), static_cast<std::size_t>(length)),
            render_line(sample_record()) + "\nx");
}

TEST(LineSink, FullDiskIsNamedAndCounted) {
  const auto sink = Line_sink::to_file("/dev/full", render_json);
  ASSERT_TRUE(sink.ok());
  const Status status = sink.value()->write(sample_record());
  EXPECT_EQ(status.message(), "Cannot write to the log file '/dev/full': No space left on device.");
}

TEST(LineSink, RecordsAroundATruncatedOneAreWholeLines) {
  const Temporary_folder folder;
  const std::string path = folder / "error.log";
  const auto sink = Line_sink::to_file(path, render_json);
  ASSERT_TRUE(sink.ok());
  const std::string line = render_json(sample_record("a"));

  EXPECT_TRUE(sink.value()->write(sample_record("a")).ok());
  {
    const File_size_limit limit{line.size() + 1 + 10};
    const Status truncated = sink.value()->write(sample_record("b"));
    EXPECT_EQ(truncated.message(), "Cannot write to the log file '" + path + "': File too large.");
    EXPECT_FALSE(sink.value()->write(sample_record("c")).ok());
  }
  EXPECT_TRUE(sink.value()->write(sample_record("d")).ok());

  EXPECT_EQ(file_bytes(path),
            line + '\n' + line.substr(0, 10) + '\n' + render_json(sample_record("d")) + '\n');
}

TEST(RingSink, KeepsTheLastRecordsNewestLast) {
  Ring_sink ring{2};
  for (const char *const message : {"a", "b", "c"}) {
    EXPECT_TRUE(ring.write(sample_record(message)).ok());
  }
  EXPECT_EQ(ring.snapshot(),
            (std::vector<Numbered_record>{{2, sample_record("b")}, {3, sample_record("c")}}));
}

TEST(RingSink, RingWithoutRoomKeepsOneRecord) {
  Ring_sink ring{0};
  EXPECT_TRUE(ring.write(sample_record("a")).ok());
  EXPECT_TRUE(ring.write(sample_record("b")).ok());
  EXPECT_EQ(ring.snapshot(), (std::vector<Numbered_record>{{2, sample_record("b")}}));
}

}  // namespace
}  // namespace dovrin_host
