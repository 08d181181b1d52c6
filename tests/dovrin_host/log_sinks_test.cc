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
#include <sstream>
#include <string>

#include "dovrin_host/error_log.h"
#include "records.h"

namespace dovrin_host {
namespace {

// A folder that goes with its object.
class Temporary_folder {
 public:
  Temporary_folder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "log_sinks_XXXXXX").string();
    path_ = mkdtemp(pattern.data());
  }
  Temporary_folder(const Temporary_folder &) = delete;
  Temporary_folder &operator=(const Temporary_folder &) = delete;
  ~Temporary_folder() { std::filesystem::remove_all(path_); }

  std::string file(const char *name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

std::string contents(const std::string &path) {
  std::ifstream file{path, std::ios::binary};
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// Keeps files of this process below a size while it lives.
class File_size_limit {
 public:
  explicit File_size_limit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &previous_);
    const rlimit limit{bytes, previous_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    previous_handler_ = std::signal(SIGXFSZ, SIG_IGN);
  }
  File_size_limit(const File_size_limit &) = delete;
  File_size_limit &operator=(const File_size_limit &) = delete;
  ~File_size_limit() {
    setrlimit(RLIMIT_FSIZE, &previous_);
    std::signal(SIGXFSZ, previous_handler_);
  }

 private:
  rlimit previous_{};
  void (*previous_handler_)(int) = SIG_DFL;
};

TEST(LineSinkTest, FileGetsOneLinePerRecordAfterWhatItHad) {
  const Temporary_folder folder;
  const std::string path = folder.file("error.log");
  std::ofstream{path} << "earlier\n";

  auto sink = Line_sink::to_file(path, render_json);
  ASSERT_TRUE(sink.ok()) << sink.message();
  EXPECT_TRUE(sink.value()->write(sample_record("a")).ok());
  EXPECT_TRUE(sink.value()->write(sample_record("b")).ok());

  EXPECT_EQ(contents(path), "earlier\n" + render_json(sample_record("a")) + '\n' +
                                render_json(sample_record("b")) + '\n');
}

TEST(LineSinkTest, NewFileIsForItsOwnerOnly) {
  const Temporary_folder folder;
  const std::string path = folder.file("error.log");
  ASSERT_TRUE(Line_sink::to_file(path, render_json).ok());
  struct stat information {};
  ASSERT_EQ(stat(path.c_str(), &information), 0);
  EXPECT_EQ(information.st_mode & 0777U, 0600U);
}

TEST(LineSinkTest, FileThatCannotBeOpenedIsNamed) {
  const auto sink = Line_sink::to_file("/nonexistent/error.log", render_json);
  ASSERT_FALSE(sink.ok());
  EXPECT_EQ(sink.message(),
            "Cannot open the log file '/nonexistent/error.log': No such file or directory.");
}

TEST(LineSinkTest, DescriptorGetsLinesAndStaysOpen) {
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

TEST(LineSinkTest, FullDiskIsNamedAndCounted) {
  const auto sink = Line_sink::to_file("/dev/full", render_json);
  ASSERT_TRUE(sink.ok());
  const Status status = sink.value()->write(sample_record());
  EXPECT_EQ(status.message(), "Cannot write to the log file '/dev/full': No space left on device.");
}

TEST(LineSinkTest, RecordsAroundACutOneAreWholeLines) {
  const Temporary_folder folder;
  const std::string path = folder.file("error.log");
  const auto sink = Line_sink::to_file(path, render_json);
  ASSERT_TRUE(sink.ok());
  const std::string line = render_json(sample_record("a"));

  EXPECT_TRUE(sink.value()->write(sample_record("a")).ok());
  {
    const File_size_limit limit{line.size() + 1 + 10};
    const Status cut = sink.value()->write(sample_record("b"));
    EXPECT_EQ(cut.message(), "Cannot write to the log file '" + path + "': File too large.");
    EXPECT_FALSE(sink.value()->write(sample_record("c")).ok());
  }
  EXPECT_TRUE(sink.value()->write(sample_record("d")).ok());

  EXPECT_EQ(contents(path),
            line + '\n' + line.substr(0, 10) + '\n' + render_json(sample_record("d")) + '\n');
}

TEST(RingSinkTest, KeepsTheLastRecordsNewestLast) {
  Ring_sink ring{2};
  for (const char *const message : {"a", "b", "c"}) {
    EXPECT_TRUE(ring.write(sample_record(message)).ok());
  }
  EXPECT_EQ(ring.snapshot(),
            (std::vector<Numbered_record>{{2, sample_record("b")}, {3, sample_record("c")}}));
}

TEST(RingSinkTest, RingWithoutRoomKeepsOneRecord) {
  Ring_sink ring{0};
  EXPECT_TRUE(ring.write(sample_record("a")).ok());
  EXPECT_TRUE(ring.write(sample_record("b")).ok());
  EXPECT_EQ(ring.snapshot(), (std::vector<Numbered_record>{{2, sample_record("b")}}));
}

}  // namespace
}  // namespace dovrin_host
