// Inputs no host should send, at the edges where OpenCV itself gives up.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>

#include "SessionFixture.h"
#include "testing/LogCapture.h"

static size_t linesStartingWith(const LogCapture& log, const std::string& prefix) {
  auto lines = log.lines();
  return std::count_if(lines.begin(), lines.end(), [&](const LogLine& l) {
    return l.priority == ANDROID_LOG_ERROR && l.tag == "Error" && l.text.compare(0, prefix.size(), prefix) == 0;
  });
}

// 1 x 600,000,000 has rows of 4 bytes (3 rounded up), 2.4 GB in all: past
// the int that OpenCV sizes images with, so it throws. It refuses before a
// pixel is read, so a small buffer stands in for the photo. Nothing may
// escape, and the running session must survive as it was.
TEST_F(SessionTest, SizesOpenCVRefusesAreLoggedAndChangeNothing) {
  open(4, 3);
  cut(0, 0, 1, 1, 2);  // a result in the history: the top-left 2 x 2 object
  LogCapture log;
  Pixels tiny(16, 0xFF0000FFu);
  HostMask mask = blankMask(9);
  EXPECT_EQ(setSourceImage(1, 600000000, tiny.data()), 0);
  EXPECT_EQ(doSegmentationBB(1, 600000000, tiny.data(), 0, 0, 0, 0, mask.data()), 0);
  EXPECT_EQ(setSourceImage(INT_MAX, 2, tiny.data()), 0);  // past OpenCV's row arithmetic
  EXPECT_EQ(mask, blankMask(9));
  EXPECT_EQ(linesStartingWith(log, "setSourceImage failed: OpenCV"), 1u);
  EXPECT_EQ(linesStartingWith(log, "doSegmentationBB failed: OpenCV"), 1u);
  EXPECT_TRUE(log.contains({ANDROID_LOG_ERROR, "Error", "setSourceImage: photo too wide"}));

  Pixels photo(12, 0);
  copySourceImage(photo.data());
  EXPECT_EQ(photo, opaque(photo_));
  redo(nullptr, mask.data());  // at the top: shows the newest result again
  const HostMask expected = {0, 0, 255, 255, 0, 0, 255, 255, 255, 255, 255, 255};
  EXPECT_EQ(mask, expected);
}

// A new photo without deinitSegmentation: the old photo's outline and its
// pending marks must not reach the host at the new size.
TEST_F(SessionTest, NewPhotoDropsTheOldOutlineAndMarks) {
  open(9, 9);
  Pixels preview = photo_;
  cut(2, 2, 6, 6, 2, nullptr, &preview);  // an outline waiting to be fetched
  std::vector<int> marks(81, 2);
  setMarkerImage(9, 9, marks.data(), 2);  // and an edit pending
  Pixels small = gradientPhoto(4, 3);
  setSourceImage(4, 3, small.data());

  int* array = nullptr;
  int length = 0;
  fetch_path_array(&array, &length);
  ASSERT_EQ(length, 1);
  EXPECT_EQ(array[0], 0);
  delete[] array;
  HostMask mask(12, 9);
  cutOutImage(0, 0, 0, nullptr, mask.data());  // no marks for this photo
  EXPECT_EQ(mask, HostMask(12, 9));
}
