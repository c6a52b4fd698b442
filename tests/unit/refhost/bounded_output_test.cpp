// Writing to an output that nobody reads does not block.
#include "refhost/app/bounded_output.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <sstream>
#include <streambuf>
#include <string>

namespace fenlux::refhost {
namespace {

constexpr std::chrono::seconds kFlushTimeout{20};

// A stream whose reader sleeps until it is woken. Never destroyed: a writer may still be blocked in it.
class StuckBuffer final : public std::streambuf {
 public:
  void WakeReader() {
    const std::lock_guard lock(mutex);
    awake = true;
    changed.notify_all();
  }
  std::string Text() {
    const std::lock_guard lock(mutex);
    return text;
  }

 protected:
  std::streamsize xsputn(const char* data, std::streamsize size) override {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return awake; });
    text.append(data, static_cast<std::size_t>(size));
    return size;
  }

 private:
  std::mutex mutex;
  std::condition_variable changed;
  bool awake = false;
  std::string text;
};

struct StuckStream {
  StuckBuffer buffer;
  std::ostream stream{&buffer};
};

TEST(BoundedOutput, WritesInOrder) {
  std::ostringstream stream;
  BoundedOutput output(stream, "a test");
  EXPECT_TRUE(output.Write("one\n"));
  EXPECT_TRUE(output.Write("two\n"));
  ASSERT_TRUE(output.Flush(kFlushTimeout));
  EXPECT_EQ(stream.str(), "one\ntwo\n");
}

// A stream that accepts nothing, like a file on a full disk.
class FullBuffer final : public std::streambuf {
 protected:
  std::streamsize xsputn(const char* /*data*/, std::streamsize /*size*/) override {
    errno = ENOSPC;
    return 0;
  }
};

TEST(BoundedOutput, SaysWhyItCouldNotWrite) {
  FullBuffer buffer;
  std::ostream stream(&buffer);
  BoundedOutput output(stream, "a test");
  EXPECT_EQ(output.Failure(), "");
  EXPECT_TRUE(output.Write("lost\n"));
  ASSERT_TRUE(output.Flush(kFlushTimeout));
  EXPECT_NE(output.Failure(), "");
}

TEST(BoundedOutput, NeverWaitsForAReaderAndDropsWhatDoesNotFit) {
  static auto* const stuck = new StuckStream;  // NOLINT: see StuckBuffer
  const std::string text(BoundedOutput::kMaxBytes / 2, 'x');
  {
    BoundedOutput output(stuck->stream, "a test");
    EXPECT_TRUE(output.Write(text));
    EXPECT_TRUE(output.Write(text));
    EXPECT_FALSE(output.Write("more"));
    EXPECT_FALSE(output.Flush(std::chrono::milliseconds(1)));
    stuck->buffer.WakeReader();
    EXPECT_TRUE(output.Flush(kFlushTimeout));
    EXPECT_TRUE(output.Write("more"));
    EXPECT_TRUE(output.Flush(kFlushTimeout));
  }
  EXPECT_EQ(stuck->buffer.Text(), text + text + "more");
}

TEST(BoundedOutput, EndsWhileItsWriterIsStuck) {
  static auto* const stuck = new StuckStream;  // NOLINT: see StuckBuffer
  BoundedOutput(stuck->stream, "a test").Write("text");
}

TEST(BoundedOutput, ContinuesAfterAFailure) {
  std::ostringstream stream;
  BoundedOutput output(stream, "a test");
  stream.setstate(std::ios::badbit);
  EXPECT_TRUE(output.Write("lost"));
  ASSERT_TRUE(output.Flush(kFlushTimeout));
  EXPECT_TRUE(output.Write("written"));
  ASSERT_TRUE(output.Flush(kFlushTimeout));
  EXPECT_EQ(stream.str(), "written");
}

}  // namespace
}  // namespace fenlux::refhost
