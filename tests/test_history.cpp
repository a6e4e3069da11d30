#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "history/KORUSEManageUndoRedo.h"
#include "SessionFixture.h"

using H = KORUSEManageUndoRedo;

// A plain model of the history: a list of at most 31 masks and how many of
// them are "applied" (the shown mask is the last applied one; none = photo).
struct HistoryModel {
  std::vector<int> masks;
  size_t applied = 0;
  void push(int id) {
    masks.resize(applied);
    masks.push_back(id);
    if (masks.size() > 31) masks.erase(masks.begin());
    applied = masks.size();
  }
  // Returns the id shown after the step, or -1 for the plain photo.
  int undo() {
    if (applied == 0) return -1;
    --applied;
    return applied ? masks[applied - 1] : -1;
  }
  int redo() {
    if (applied < masks.size()) ++applied;
    return masks[applied - 1];
  }
  bool canUndo() const { return applied >= 2; }
  bool canRedo() const { return applied < masks.size(); }
};

// Mask number `id` on a 6 x 5 image: pixel i is object when bit (i % 9) of id is set.
class History : public SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    open(6, 5);
  }
  void push(int id) {
    IplImage* m = cvCreateImage(cvSize(w_, h_), IPL_DEPTH_8U, 1);
    for (int i = 0; i < w_ * h_; ++i)
      m->imageData[(i / w_) * m->widthStep + i % w_] = ((id >> (i % 9)) & 1) ? 255 : 0;
    H::updateBitPlane(m);
    cvReleaseImage(&m);
  }
  // The id a history image shows, or -1 for null. Checks every pixel.
  int idOf(IplImage* m) {
    if (!m) return -1;
    int id = 0;
    for (int i = 0; i < 9; ++i)
      if (static_cast<uint8_t>(m->imageData[(i / w_) * m->widthStep + i % w_]) == 255) id |= 1 << i;
    for (int i = 0; i < w_ * h_; ++i) {
      uint8_t v = static_cast<uint8_t>(m->imageData[(i / w_) * m->widthStep + i % w_]);
      EXPECT_EQ(v, ((id >> (i % 9)) & 1) ? 255 : 0) << "pixel " << i;
    }
    cvReleaseImage(&m);
    return id;
  }
};

// Undo, redo, the ring of 31 and canUndo (false with one mask, though undo
// still steps back to the photo) are checked against the model below; here
// the slots outside the ring: none below 0, an empty mask past 31.
TEST_F(History, SlotsOutsideTheRing) {
  push(11);
  EXPECT_EQ(H::getMask(-1), nullptr);
  IplImage* beyond = H::getMask(40);
  ASSERT_NE(beyond, nullptr);
  EXPECT_EQ(cvCountNonZero(beyond), 0);
  cvReleaseImage(&beyond);
}

TEST_F(History, RandomSequencesMatchTheModel) {
  std::mt19937 rng(1234);
  for (int round = 0; round < 20; ++round) {
    H::reset();
    HistoryModel model;
    int nextId = 1;
    for (int step = 0; step < 300; ++step) {
      int op = rng() % 10;
      if (op < 4) {
        push(nextId);
        model.push(nextId);
        nextId = nextId % 511 + 1;
      } else if (op < 7) {
        ASSERT_EQ(idOf(H::undo()), model.undo()) << "round " << round << " step " << step;
      } else if (!model.masks.empty()) {
        ASSERT_EQ(idOf(H::redo()), model.redo()) << "round " << round << " step " << step;
      }
      ASSERT_EQ(H::canUndo(), model.canUndo());
      ASSERT_EQ(H::canRedo(), model.canRedo());
      IplImage* shown = H::prevMask();
      ASSERT_EQ(idOf(shown), model.applied ? model.masks[model.applied - 1] : -1);
    }
  }
}

TEST_F(History, ExportedCallsDeliverMasksOrThePhoto) {
  HostMask first = blankMask(), second = blankMask();
  cut(0, 0, 1, 1, 2, &first);           // object: the 2 x 2 top-left corner
  cut(4, 3, 5, 4, 2, &second);          // adds the bottom-right corner
  EXPECT_EQ(canUndo(), 1);
  EXPECT_EQ(canRedo(), 0);

  HostMask mask = blankMask();
  Pixels preview(photo_.size(), 0);
  EXPECT_EQ(undo(preview.data(), mask.data()), 0);
  EXPECT_EQ(mask, first);
  EXPECT_EQ(canRedo(), 1);
  EXPECT_EQ(redo(preview.data(), mask.data()), 0);
  EXPECT_EQ(mask, second);
  EXPECT_EQ(redo(preview.data(), mask.data()), 0);  // at the top: unchanged
  EXPECT_EQ(mask, second);

  undo(preview.data(), mask.data());
  HostMask untouched = blankMask(9);
  preview.assign(photo_.size(), 0);
  EXPECT_EQ(undo(preview.data(), untouched.data()), 0);  // back to the plain photo
  EXPECT_EQ(untouched, blankMask(9));
  EXPECT_EQ(preview, opaque(photo_));
}

// Planes are written and read in blocks, and blocks where no slot ever had
// an object pixel are skipped; the rule stays per pixel: bit k of word [x][y]
// is 1 exactly where the mask is nonzero, the other bits keep their values.
// Sizes straddle the blocks, and one is a single column or row; half of the
// masks are a small rectangle, so that some blocks stay unused for a while.
TEST_F(SessionTest, PlanesFollowThePerPixelRuleOnOddSizes) {
  for (auto size : {std::make_pair(1, 1), std::make_pair(1, 130), std::make_pair(131, 1),
                    std::make_pair(67, 65), std::make_pair(129, 200)}) {
    const int w = size.first, h = size.second;
    open(w, h);
    std::mt19937 rng(w * 1000 + h);
    const uint8_t values[] = {0, 0, 1, 255, 7};
    std::vector<uint32_t> model(size_t(w) * h, 0);  // [y * w + x]
    for (int round = 0; round < 40; ++round) {
      const int slot = rng() % 32;
      IplImage* m = cvCreateImage(cvSize(w, h), IPL_DEPTH_8U, 1);
      const bool sparse = round % 2;
      const int rx = rng() % w, ry = rng() % h, rw = 1 + rng() % 20, rh = 1 + rng() % 20;
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          const bool inside = x >= rx && x < rx + rw && y >= ry && y < ry + rh;
          const uint8_t v = sparse && !inside ? 0 : values[rng() % 5];
          m->imageData[y * m->widthStep + x] = static_cast<char>(v);
          uint32_t& word = model[size_t(y) * w + x];
          word = v ? (word | (1u << slot)) : (word & ~(1u << slot));
        }
      H::setMask(slot, m);
      cvReleaseImage(&m);
      const int read = rng() % 32;
      IplImage* back = H::getMask(read);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          ASSERT_EQ(H::m_bitPlane[x][y], model[size_t(y) * w + x]) << w << "x" << h << " at " << x << "," << y;
          ASSERT_EQ(uint8_t(back->imageData[y * back->widthStep + x]),
                    ((model[size_t(y) * w + x] >> read) & 1) ? 255 : 0);
        }
      cvReleaseImage(&back);
    }
  }
}
