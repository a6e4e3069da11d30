// The playground's parts on their own: photo headers read before decoding,
// the pipe protocol's frames, and session files written back.
#include <gtest/gtest.h>
#include <unistd.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <thread>

#include "tools/host/SessionFile.h"
#include "tools/playground/server/PhotoHeader.h"
#include "tools/playground/worker/WorkerProtocol.h"

namespace {

std::string encoded(const char* extension, cv::Size size, std::vector<int> options = {}, int type = CV_8UC3) {
  std::vector<uchar> bytes;
  cv::Mat image(size, type, cv::Scalar(30, 160, 90, 128));  // half-transparent where there is alpha
  cv::circle(image, {size.width / 2, size.height / 2}, size.height / 3, cv::Scalar(200, 20, 40), cv::FILLED);
  EXPECT_TRUE(cv::imencode(extension, image, bytes, options)) << extension;
  return std::string(bytes.begin(), bytes.end());
}

}  // namespace

// The sizes come from OpenCV's own encoders, so the reader is checked
// against files as a camera or an editor writes them, odd sizes included.
TEST(PhotoHeader, ReadsTheSizeOfEveryFormatItTakes) {
  const cv::Size sizes[] = {{1, 1}, {600, 400}, {333, 1001}, {4243, 17}};
  const struct {
    const char* extension;
    const char* format;
    std::vector<int> options;
    int type = CV_8UC3;
  } formats[] = {{".png", "PNG", {}},
                 {".jpg", "JPEG", {}},
                 {".jpg", "JPEG", {cv::IMWRITE_JPEG_PROGRESSIVE, 1}},
                 {".webp", "WebP", {cv::IMWRITE_WEBP_QUALITY, 80}},                // lossy: VP8
                 {".webp", "WebP", {cv::IMWRITE_WEBP_QUALITY, 101}},               // lossless: VP8L
                 {".webp", "WebP", {cv::IMWRITE_WEBP_QUALITY, 80}, CV_8UC4}};      // with alpha: VP8X
  for (const auto& f : formats)
    for (const cv::Size& size : sizes) {
      const auto header = readPhotoHeader(encoded(f.extension, size, f.options, f.type));
      ASSERT_TRUE(header) << f.extension << " " << size;
      EXPECT_STREQ(header->format, f.format);
      EXPECT_EQ(header->width, size.width) << f.extension;
      EXPECT_EQ(header->height, size.height) << f.extension;
    }
}

// A file cut short keeps its header, so it would open; the reader says it
// does not reach its end. Bytes after a JPEG's end (camera trailers) and
// markers inside a progressive JPEG's scans are no cut.
TEST(PhotoHeader, SaysWhetherTheFileReachesItsEnd) {
  const cv::Size size(640, 480);
  const std::string files[] = {encoded(".png", size), encoded(".jpg", size),
                               encoded(".jpg", size, {cv::IMWRITE_JPEG_PROGRESSIVE, 1}),
                               encoded(".jpg", size, {cv::IMWRITE_JPEG_RST_INTERVAL, 4}),
                               encoded(".webp", size, {cv::IMWRITE_WEBP_QUALITY, 80})};
  for (const std::string& file : files) {
    const auto whole = readPhotoHeader(file);
    ASSERT_TRUE(whole);
    EXPECT_TRUE(whole->complete) << whole->format;
    EXPECT_TRUE(readPhotoHeader(file + std::string(100, '\x5a'))->complete) << whole->format << " with a trailer";
    for (double kept : {0.3, 0.9}) {
      const auto cut = readPhotoHeader(file.substr(0, static_cast<size_t>(file.size() * kept)));
      ASSERT_TRUE(cut) << whole->format;
      EXPECT_FALSE(cut->complete) << whole->format << " cut to " << kept;
      EXPECT_EQ(cut->width, size.width);
    }
  }
}

TEST(PhotoHeader, TurnsAwayWhatIsNoPhotoOrBrokenBeforeItsSize) {
  const std::string png = encoded(".png", {60, 40}), jpeg = encoded(".jpg", {60, 40});
  EXPECT_FALSE(readPhotoHeader(""));
  EXPECT_FALSE(readPhotoHeader("GIF89a, not one of ours"));
  EXPECT_FALSE(readPhotoHeader(encoded(".bmp", {60, 40})));
  EXPECT_FALSE(readPhotoHeader(png.substr(0, 20)));
  EXPECT_FALSE(readPhotoHeader(jpeg.substr(0, 30)));  // ends in the tables before the frame
  std::string broken = jpeg;
  broken[2] = 'x';  // no marker where one must start
  EXPECT_FALSE(readPhotoHeader(broken));
}

TEST(WorkerProtocol, MessagesCrossAPipeWholeAndAClosedPipeEndsTheReading) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const std::string payload(3 << 20, '\x7f');  // more than a pipe holds: the writer must wait for the reader
  std::thread writer([&] {
    EXPECT_TRUE(writeMessage(ends[1], {{{"op", "view"}, {"max", 1280}}, payload}));
    EXPECT_TRUE(writeMessage(ends[1], errorReply(409, "There is nothing to redo.")));
    close(ends[1]);
  });
  const auto first = readMessage(ends[0]);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->header["op"], "view");
  EXPECT_EQ(first->header["max"], 1280);
  EXPECT_TRUE(first->payload == payload);
  const auto second = readMessage(ends[0]);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->header["status"], 409);
  EXPECT_EQ(second->header["error"], "There is nothing to redo.");
  EXPECT_TRUE(second->payload.empty());
  EXPECT_FALSE(readMessage(ends[0]));
  writer.join();
  close(ends[0]);
}

TEST(WorkerProtocol, AFrameCutShortIsNoMessage) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const uint64_t lengths[2] = {100, 0};  // promises a header it never sends
  ASSERT_EQ(write(ends[1], lengths, sizeof lengths), static_cast<ssize_t>(sizeof lengths));
  ASSERT_EQ(write(ends[1], "{\"op\":", 6), 6);
  close(ends[1]);
  EXPECT_FALSE(readMessage(ends[0]));
  close(ends[0]);
}

// Written by hand as a person writes a session file, read, written back by
// sessionText and read again: the same steps.
TEST(SessionText, ReadsBackAsTheSameSteps) {
  const std::string text = R"({"steps": [
    {"kind": "box", "box": [72, 14, 482, 392]},
    {"kind": "loop", "mode": "remove", "points": [[1, 2], [30, 2], [30, 40]]},
    {"kind": "stroke", "mode": "add", "radius": 0, "points": [[5, 6]]},
    {"kind": "cut", "mode": "remove", "points": [[1, 1], [9, 1], [9, 9]]},
    {"kind": "cut", "mode": "add", "radius": 12, "points": [[7, 8], [9, 10]]},
    {"kind": "undo"}, {"kind": "redo"}, {"kind": "reset"}]})";
  const std::vector<Step> steps = parseSession(text, "by hand");
  const std::string written = sessionText(steps);
  const std::vector<Step> again = parseSession(written, "written");
  ASSERT_EQ(again.size(), steps.size());
  for (size_t i = 0; i < steps.size(); ++i) {
    EXPECT_EQ(again[i].kind, steps[i].kind) << i;
    EXPECT_EQ(again[i].add, steps[i].add) << i;
    EXPECT_EQ(again[i].points, steps[i].points) << i;
    EXPECT_EQ(again[i].radius, steps[i].radius) << i;
  }
  EXPECT_EQ(written.rfind("{\"steps\": [\n  {\"kind\":\"box\",\"box\":[72,14,482,392]},\n  {", 0), 0u) << written;
  EXPECT_EQ(sessionText(again), written);
}
