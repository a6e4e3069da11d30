// The cutout tool, run as a program: its outputs on a generated scene whose
// object is known, undo, and every class of bad input.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tools/host/Failure.h"

namespace fs = std::filesystem;

namespace {

struct Outcome {
  int code = -1;
  std::string err;  // everything the program wrote to stderr
};

std::string slurp(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// Runs cutout with `args`; its stdout and stderr go to files in `dir`.
Outcome cutout(const fs::path& dir, std::vector<std::string> args) {
  args.insert(args.begin(), SEG_CUTOUT_EXE);
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  const std::string out = (dir / "stdout.txt").string(), err = (dir / "stderr.txt").string();
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&files, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = 0;
  Outcome run;
  if (posix_spawn(&pid, argv[0], &files, nullptr, argv.data(), environ) == 0) {
    int status = 0;
    waitpid(pid, &status, 0);
    run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  posix_spawn_file_actions_destroy(&files);
  run.err = slurp(err);
  return run;
}

// A 360 x 270 scene (reduced by the engine, so refined at full size): noisy
// green stripes, and on them a noisy red object, an ellipse with a tab on top.
// The truth mask is drawn with the same shapes.
struct Scene {
  cv::Mat photo, truth;
  cv::Rect box;  // around the object with a margin
};

Scene makeScene() {
  Scene s;
  s.truth = cv::Mat::zeros(270, 360, CV_8UC1);
  cv::ellipse(s.truth, {180, 150}, {95, 70}, 0, 0, 360, cv::Scalar(255), cv::FILLED);
  cv::rectangle(s.truth, cv::Rect(150, 45, 60, 40), cv::Scalar(255), cv::FILLED);
  s.box = cv::Rect(70, 30, 220, 205);

  s.photo.create(270, 360, CV_8UC3);
  uint32_t seed = 12345;
  const auto noise = [&] {
    seed = seed * 1664525u + 1013904223u;
    return static_cast<int>(seed >> 24) % 31 - 15;
  };
  for (int y = 0; y < 270; ++y)
    for (int x = 0; x < 360; ++x) {
      cv::Vec3i c = s.truth.at<uchar>(y, x)
                        ? cv::Vec3i(40, 50, 200)
                        : ((x + y) / 12 % 2 ? cv::Vec3i(50, 150, 60) : cv::Vec3i(110, 170, 40));
      for (int k = 0; k < 3; ++k) c[k] += noise();
      s.photo.at<cv::Vec3b>(y, x) = cv::Vec3b(uchar(c[0]), uchar(c[1]), uchar(c[2]));
    }
  return s;
}

double iou(const cv::Mat& a, const cv::Mat& b) {
  const double both = cv::countNonZero(a & b), either = cv::countNonZero(a | b);
  return either > 0 ? both / either : 0.0;
}

bool same(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0;
}

std::string boxArg(cv::Rect r) {
  return std::to_string(r.x) + "," + std::to_string(r.y) + "," + std::to_string(r.br().x - 1) + "," +
         std::to_string(r.br().y - 1);
}

class CutoutTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::path(::testing::TempDir()) / ("cutout-" + std::to_string(getpid()) + "-" +
                                             ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    scene_ = makeScene();
    photo_ = (dir_ / "scene.png").string();
    ASSERT_TRUE(cv::imwrite(photo_, scene_.photo));
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string write(const std::string& name, const std::string& text) {
    std::ofstream(dir_ / name) << text;
    return (dir_ / name).string();
  }
  std::string out(const std::string& name) const { return (dir_ / name).string(); }

  fs::path dir_;
  Scene scene_;
  std::string photo_;
};

TEST_F(CutoutTest, BoxCutFindsTheObjectAndAlphaIsTheMask) {
  const Outcome run = cutout(dir_, {photo_, "--box", boxArg(scene_.box), "-o", out("box")});
  ASSERT_EQ(run.code, kExitOk) << run.err;

  const cv::Mat mask = cv::imread(out("box/mask.png"), cv::IMREAD_UNCHANGED);
  ASSERT_EQ(mask.type(), CV_8UC1);
  EXPECT_GE(iou(mask, scene_.truth), 0.95);

  // The cut-out is the photo itself with the mask as its alpha.
  const cv::Mat cut = cv::imread(out("box/cutout.png"), cv::IMREAD_UNCHANGED);
  ASSERT_EQ(cut.type(), CV_8UC4);
  cv::Mat channels[4];
  cv::split(cut, channels);
  EXPECT_TRUE(same(channels[3], mask));
  cv::Mat bgr;
  cv::merge(channels, 3, bgr);
  EXPECT_TRUE(same(bgr, scene_.photo));

  // The preview is the photo except for yellow outline pixels, and those lie
  // within two pixels of the mask's border.
  const cv::Mat preview = cv::imread(out("box/preview.png"), cv::IMREAD_UNCHANGED);
  cv::Mat border, grown, shrunk;
  cv::dilate(mask, grown, cv::Mat(), {-1, -1}, 2);
  cv::erode(mask, shrunk, cv::Mat(), {-1, -1}, 2);
  border = grown & ~shrunk;
  int yellow = 0;
  for (int y = 0; y < preview.rows; ++y)
    for (int x = 0; x < preview.cols; ++x) {
      const cv::Vec3b p = preview.at<cv::Vec3b>(y, x);
      if (p == cv::Vec3b(0, 255, 255) && border.at<uchar>(y, x))
        ++yellow;
      else
        ASSERT_EQ(p, scene_.photo.at<cv::Vec3b>(y, x)) << x << "," << y;
    }
  EXPECT_GT(yellow, 0);
  EXPECT_NE(slurp(out("box/outline.json")).find("\"contours\":[[["), std::string::npos);
}

TEST_F(CutoutTest, UndoneStepLeavesNoTrace) {
  // Both sessions remove the tab with a loop; one first strokes a line off
  // the object and undoes it.
  const std::string box = "{\"kind\": \"box\", \"box\": [70, 30, 289, 234]}";
  const std::string loop =
      "{\"kind\": \"loop\", \"mode\": \"remove\", \"points\": [[140, 35], [220, 35], [220, 88], [140, 88]]}";
  const std::string stroke =
      "{\"kind\": \"stroke\", \"mode\": \"remove\", \"radius\": 4, \"points\": [[100, 150], [260, 150]]}";
  const std::string withUndo =
      write("a.json", "{\"steps\": [" + box + ", " + stroke + ", {\"kind\": \"undo\"}, " + loop + "]}");
  const std::string without = write("b.json", "{\"steps\": [" + box + ", " + loop + "]}");

  ASSERT_EQ(cutout(dir_, {photo_, "--edits", withUndo, "-o", out("a"), "--every-step"}).code, kExitOk);
  ASSERT_EQ(cutout(dir_, {photo_, "--edits", without, "-o", out("b")}).code, kExitOk);
  const auto mask = [&](const std::string& file) { return cv::imread(out(file), cv::IMREAD_UNCHANGED); };

  EXPECT_FALSE(
      same(mask("a/step-2-stroke/mask.png"), mask("a/step-1-box/mask.png")));  // the stroke did something
  EXPECT_TRUE(same(mask("a/step-3-undo/mask.png"), mask("a/step-1-box/mask.png")));
  EXPECT_FALSE(same(mask("a/mask.png"), mask("a/step-1-box/mask.png")));  // so did the loop
  EXPECT_TRUE(same(mask("a/mask.png"), mask("b/mask.png")));
}

TEST_F(CutoutTest, BadInputGetsItsExitCodeAndNoOutput) {
  std::ofstream(dir_ / "truncated.png", std::ios::binary) << slurp(photo_).substr(0, 200);
  write("file", "not a folder");
  struct Case {
    std::vector<std::string> args;
    int code;
    std::string says;
  };
  const std::vector<Case> cases = {
      {{photo_}, kExitUsage, "--box"},
      {{photo_, "--box", "1,2,3", "--edits", "x.json"}, kExitUsage, "--"},
      {{out("missing.png"), "--box", "1,1,9,9"}, kExitPhoto, "missing.png"},
      {{write("text.png", "hello"), "--box", "1,1,9,9"}, kExitPhoto, "text.png"},
      {{out("truncated.png"), "--box", "1,1,9,9"}, kExitPhoto, "truncated.png"},
      {{photo_, "--box", "50,50,50,90"}, kExitBox, "empty"},
      {{photo_, "--box", "400,10,500,90"}, kExitBox, "outside"},
      {{photo_, "--edits", out("none.json")}, kExitSession, "none.json"},
      {{photo_, "--edits",
        write("syntax.json", "{\"steps\": [\n  {\"kind\": \"undo\"},\n  {\"kind\" \"redo\"}\n]}")},
       kExitSession,
       "line 3, column"},
      {{photo_, "--edits", write("nopoints.json", "{\"steps\": [{\"kind\": \"loop\", \"mode\": \"add\"}]}")},
       kExitSession,
       "step 1"},
      {{photo_, "--edits", write("lasso.json", "{\"steps\": [{\"kind\": \"undo\"}, {\"kind\": \"lasso\"}]}")},
       kExitUnknownStep,
       "step 2: unknown kind \"lasso\""},
      {{photo_, "--box", "1,1,9,9", "-o", out("file/sub")}, kExitOutput, "file/sub"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = c.args;
    if (std::find(args.begin(), args.end(), "-o") == args.end()) args.insert(args.end(), {"-o", out("o")});
    const Outcome run = cutout(dir_, args);
    EXPECT_EQ(run.code, c.code) << args[1] << " " << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    EXPECT_NE(run.err.find(c.says), std::string::npos) << run.err;
    EXPECT_TRUE(!fs::exists(out("o")) || fs::is_empty(out("o"))) << run.err;
    EXPECT_FALSE(fs::exists(out("file/sub")));
  }

  // Points off the photo are clamped with a warning: the run completes.
  const std::string clamped =
      write("clamp.json", "{\"steps\": [{\"kind\": \"box\", \"box\": [70, 30, 400, 300]}]}");
  const Outcome run = cutout(dir_, {photo_, "--edits", clamped, "-o", out("c")});
  EXPECT_EQ(run.code, kExitClamped);
  EXPECT_EQ(run.err.rfind("cutout: warning: ", 0), 0u) << run.err;
  EXPECT_NE(run.err.find("clamp.json: step 1 (box): 1 of 2 points"), std::string::npos) << run.err;
  EXPECT_TRUE(fs::exists(out("c/cutout.png")));
}

// Two generated photos, 120 x 90: a noisy red block at [40,80) x [30,60) on
// green, a one-pixel mixed ring (truth 128) around it. "one" has a lasso,
// "two" none. The saved masks: "one" the truth itself, "two" the block and
// its ring plus a false 10 x 10 square at the corner, minus a missed 10 x 10
// square at the block's corner. By hand: 144 ring pixels are not scored, so
// 10656 are, 200 of them wrong in "two": 1.8769 %; inside the box (60 x 50,
// the ring in it) 2856 are scored, 100 wrong: 3.5014 %. The cuts' own
// scores and times are not asserted.
TEST_F(CutoutTest, EvalScoresAFolderBesideGrabCut) {
  const fs::path bench = dir_ / "bench";
  for (const char* sub : {"images", "truth", "lasso", "masks"}) fs::create_directories(bench / sub);
  const cv::Rect block(40, 30, 40, 30), ring(39, 29, 42, 32);
  cv::Mat truth(90, 120, CV_8UC1, cv::Scalar(0));
  truth(ring).setTo(128);
  truth(block).setTo(255);
  uint32_t seed = 7;
  for (const char* name : {"one", "two"}) {
    cv::Mat photo(90, 120, CV_8UC3);
    for (int y = 0; y < 90; ++y)
      for (int x = 0; x < 120; ++x) {
        seed = seed * 1664525u + 1013904223u;
        const int n = static_cast<int>(seed >> 27) - 16;
        photo.at<cv::Vec3b>(y, x) = block.contains({x, y}) ? cv::Vec3b(40, 50, uchar(200 + n))
                                                            : cv::Vec3b(60, uchar(160 + n), 60);
      }
    ASSERT_TRUE(cv::imwrite((bench / "images" / (std::string(name) + ".png")).string(), photo));
    ASSERT_TRUE(cv::imwrite((bench / "truth" / (std::string(name) + ".png")).string(), truth));
  }
  cv::Mat lasso(90, 120, CV_8UC1, cv::Scalar(0));
  lasso(cv::Rect(34, 24, 52, 42)).setTo(128);
  cv::imwrite((bench / "lasso" / "one.png").string(), lasso);
  cv::imwrite((bench / "masks" / "one.png").string(), truth == 255);
  cv::Mat two = truth > 0;
  two(cv::Rect(0, 0, 10, 10)).setTo(255);
  two(cv::Rect(40, 30, 10, 10)).setTo(0);
  cv::imwrite((bench / "masks" / "two.png").string(), two);
  std::ofstream(bench / "boxes.tsv") << "name\tx1\ty1\tx2\ty2\none\t30\t20\t89\t69\ntwo\t30\t20\t89\t69\n";

  const Outcome run = cutout(dir_, {"eval", bench.string(), "-o", out("eval"), "--masks", (bench / "masks").string()});
  ASSERT_EQ(run.code, kExitOk) << run.err;
  std::string line;

  // photo,width,height, then per method image %, box % (and CPU, wall for
  // the three timed ones), then the robot's two counts: 19 cells.
  std::istringstream csv(slurp(out("eval/eval.csv")));
  std::vector<std::vector<std::string>> cells;
  while (std::getline(csv, line)) {
    std::vector<std::string> row;
    std::istringstream fields(line);
    for (std::string cell; std::getline(fields, cell, ',');) row.push_back(cell);
    if (!line.empty() && line.back() == ',') row.push_back("");
    cells.push_back(row);
  }
  ASSERT_EQ(cells.size(), 4u);
  for (const auto& row : cells) EXPECT_EQ(row.size(), 19u) << row[0];
  EXPECT_EQ(cells[0][15], "saved_err_image_pct");
  EXPECT_EQ(cells[1][15], "0.0000");  // the perfect mask
  EXPECT_EQ(cells[1][16], "0.0000");
  EXPECT_EQ(cells[2][15], "1.8769");
  EXPECT_EQ(cells[2][16], "3.5014");
  EXPECT_EQ(cells[2][7], "");  // no lasso for "two"
  EXPECT_NE(cells[1][7], "");

  fs::remove(bench / "boxes.tsv");
  EXPECT_EQ(cutout(dir_, {"eval", bench.string(), "-o", out("eval2")}).code, kExitBenchmark);
}

}  // namespace
