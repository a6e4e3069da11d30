// Choosing the smoothness weight. Passes 0 to 2 cut with three candidate
// weights; before pass 3, optimalLamda picks the most plausible of their
// labellings, and the driver continues from it with that candidate's weight.
// A homogeneous image keeps weight 50 (homogenousLamda); after its last cut,
// chooseIter may go back to the first cut's labelling.
#include <opencv2/imgproc.hpp>
#include <opencv2/imgproc/imgproc_c.h>

#include <algorithm>
#include <vector>

#include "engine/BoundaryContrast.h"
#include "engine/KORUSEHybrid.h"
#include "engine/ModelSteps.h"
#include "interface/session/KORUSEMarker.h"
#include "support/Gradient.h"
#include "support/ImageRows.h"
#include "support/KORULog.h"
#include "support/KORUMemory.h"
#include "support/LogSites.h"
#include "support/Marks.h"

namespace {
const float kColourCandidates[3] = {static_cast<float>(kStrongestLambda), 13.513f, 8.0f};
const float kColourFallback = 4.0f;
const float kGreyCandidates[3] = {15.0f, 10.0f, 7.0f};
const float kGreyFallback = 3.0f;

const double kKeptComponentShare = 0.7;  // components above 70 % of the largest stay
const float kFrameShare = 0.15f;         // "framed": within 15 % of every border
const float kMinObjectArea = 100.0f;     // smaller unframed objects: fall back
const double kSpreadLimit = 0.4;         // area spread that prefers the last candidate

// Box of the pixels at 255.
CvRect boxOfObject(const IplImage* mask) {
  return boxWhere(mask, [](uint8_t v) { return v == 255; });
}
// The box reaches within f of all four borders; an empty box never does.
bool framed(const CvRect& b, int w, int h, float f) {
  const int fw = static_cast<int>(f * w), fh = static_cast<int>(f * h);
  const int xmax = b.x + b.width - 1, ymax = b.y + b.height - 1;
  return b.width > 0 && b.x < fw && w - xmax < fw && b.y < fh && h - ymax < fh;
}

// Components are numbered as a flood fill of the 8-bit image numbers them:
// 2, 3, ... in the raster order of their first pixels, and from the 254th
// component on every one gets 255, so those are counted together as one.
constexpr int kFirstComponentValue = 2;
constexpr int kLastComponentValue = 255;

// Writes 255 into `bin` for the object components (4-connected, numbered as
// above) larger than 70 % of the largest, 0 elsewhere; returns their pixel
// count.
int keepLargeComponents(const IplImage* labels, IplImage* bin) {
  for (int y = 0; y < labels->height; ++y) {
    const uint8_t* in = imageRow(labels, y);
    uint8_t* out = imageRow(bin, y);
    for (int x = 0; x < labels->width; ++x) out[x] = isObject(in[x]) ? 1 : 0;
  }
  cv::Mat binary = cv::cvarrToMat(bin), components;
  const int n = cv::connectedComponents(binary, components, 4, CV_32S);
  std::vector<int> value(n, 0);  // per component id: its fill value; id 0 is the background
  const int next = kFirstComponentValue + (n - 1);
  auto* counts = static_cast<int32_t*>(KORU_Calloc_Msg(next, sizeof(int32_t), site::optimalLamdaCounts));
  if (!counts) {
    cvSetZero(bin);
    return 0;
  }
  int numbered = kFirstComponentValue;
  for (int y = 0; y < binary.rows; ++y) {
    const int* id = components.ptr<int>(y);
    for (int x = 0; x < binary.cols; ++x) {
      if (id[x] && !value[id[x]]) value[id[x]] = std::min(numbered++, kLastComponentValue);
      ++counts[value[id[x]]];
    }
  }
  counts[0] = counts[1] = 0;
  int largest = 0;
  for (int v = kFirstComponentValue; v < next; ++v) largest = std::max(largest, counts[v]);
  const int limit = static_cast<int>(largest * kKeptComponentShare);
  int area = 0;
  for (int y = 0; y < binary.rows; ++y) {
    uint8_t* out = binary.ptr<uint8_t>(y);
    const int* id = components.ptr<int>(y);
    for (int x = 0; x < binary.cols; ++x) {
      out[x] = counts[value[id[x]]] > limit ? 255 : 0;
      area += out[x] != 0;
    }
  }
  KORU_Free_Msg(counts, site::optimalLamdaCountsFreed);
  return area;
}
}  // namespace

int KORUSEHybrid::parallelLamdaSwtich(int k) {
  const bool grey = KORUSEMarker::m_isGreyScale;
  const float* candidates = grey ? kGreyCandidates : kColourCandidates;
  if (k <= 2) {
    // Truncated on purpose: the second colour candidate cuts with 13 here
    // but with 13.513 when pass 3 selects it.
    m_lambda = static_cast<double>(static_cast<int>(candidates[k]));
    cvCopy(m_roiInitialLabel, m_roiLabel, nullptr);
    return k == 0 ? FRESH_MODELS : KEEP_MODELS;
  }
  if (k > 3) return UPDATE_MODELS;
  const int chosen = optimalLamda(m_iterLabel, nullptr);
  if (chosen < 0) {
    m_lambda = grey ? kGreyFallback : kColourFallback;
    cvCopy(m_roiInitialLabel, m_roiLabel, nullptr);
    return KEEP_MODELS;
  }
  m_lambda = candidates[chosen];
  cvCopy(m_iterLabel[chosen], m_roiLabel, nullptr);
  return UPDATE_MODELS;
}

int KORUSEHybrid::optimalLamda(IplImage** labels, float*) {
  if (!labels || !labels[0] || !labels[1] || !labels[2]) {
    logBadCall("optimalLamda", "missing labellings");
    return -1;
  }
  if (!checkImageSize(labels[0]->width, labels[0]->height, site::optimalLamda)) return -1;
  IplImage* bins[3];
  for (IplImage*& bin : bins) bin = cvCreateImage(cvGetSize(labels[0]), 8, 1);
  int area[3];
  bool isFramed[3];
  for (int k = 0; k < 3; ++k) {
    area[k] = keepLargeComponents(labels[k], bins[k]);
    isFramed[k] = framed(boxOfObject(bins[k]), bins[k]->width, bins[k]->height, kFrameShare);
  }
  // The three colour tests read one image: each neighbour distance once.
  int colours[3];
  if (m_roiImage && m_roiImage->width == bins[0]->width && m_roiImage->height == bins[0]->height) {
    ContrastSums sums[3];
    contrastSumsOfMasks(bins, 3, m_roiImage, sums);
    for (int k = 0; k < 3; ++k) colours[k] = contrastVerdict(sums[k]);
  } else {
    for (int k = 0; k < 3; ++k) colours[k] = intensityTest(bins[k]);
  }
  std::vector<int> passing;
  for (int k = 0; k < 3; ++k)
    if (colours[k] == 1) passing.push_back(k);
  for (IplImage*& bin : bins) cvReleaseImage(&bin);

  if (passing.empty()) return 0;
  int best = -1;
  for (int k : passing)
    if (isFramed[k] && (best < 0 || area[k] < area[best])) best = k;
  if (best >= 0) return best;

  float maxArea = 0.0f, sum = 0.0f;
  for (int k : passing) {
    maxArea = std::max(maxArea, static_cast<float>(area[k]));
    sum += static_cast<float>(area[k]);
  }
  if (maxArea < kMinObjectArea) return -1;
  const float n = static_cast<float>(passing.size());
  const float mean = sum / (maxArea * n);
  float spread = 0.0f;
  for (int k : passing) {
    const float d = mean - area[k] / maxArea;
    spread += d * d;
  }
  if (passing.size() == 1 || static_cast<double>(spread) > kSpreadLimit) return passing.back();
  return passing[passing.size() - 2];
}

int KORUSEHybrid::intensityTest(const IplImage* mask) {
  return contrastVerdict(contrastSums(mask, m_roiImage));
}

bool KORUSEHybrid::boundaryTest(const IplImage* mask, float f) {
  return mask && framed(boxOfObject(mask), mask->width, mask->height, f);
}

bool KORUSEHybrid::homogenousLamda(int k) {
  const bool homogeneous = (k == 0 && m_bgModel.colorModelCriteria()) || KORUSEMarker::m_isHomogenous;
  m_fgModel.setInverseCovariance();
  if (homogeneous) {
    // A background of one colour would claim every pixel near it: invert it
    // with a heavy regulariser and cut at the strongest weight.
    KORUSEMarker::m_noiseLevel = kHomogeneousNoiseLevel;
    m_bgModel.setInverseCovariance();
    KORUSEMarker::m_noiseLevel = kNoiseLevel;
    m_lambda = kStrongestLambda;
    KORUSEMarker::m_isHomogenous = true;
  } else {
    m_bgModel.setInverseCovariance();
    KORUSEMarker::m_isHomogenous = false;
  }
  return !homogeneous;
}

namespace {
const float kStrongEdge = 70.0f;  // gradient above: the boundary lies on an edge
const float kWeakEdge = 30.0f;    // gradient below: it crosses flat colour
const float kFirstCutOnEdges = 0.75f;
const float kFinalCutNearlyPerfect = 0.98f;
const float kImprovementWorthKeeping = 0.2f;

// (strong - weak) / n over the inner boundary pixels of the labelling's object.
float boundaryEdgeScore(const IplImage* labels, const cv::Mat& gradient) {
  IplImage* boundary = cvCloneImage(labels);
  IplImage* eroded = cvCloneImage(labels);
  cvSetZero(boundary);
  for (int y = 0; y < labels->height; ++y) {
    const uint8_t* in = imageRow(labels, y);
    uint8_t* out = imageRow(boundary, y);
    for (int x = 0; x < labels->width; ++x) out[x] = isObject(in[x]) ? 255 : 0;
  }
  // Too small to erode: the label copy itself is subtracted.
  if (boundary->width > 2 && boundary->height > 2) cvErode(boundary, eroded, nullptr, 1);
  cvSub(boundary, eroded, boundary, nullptr);

  int n = 0, strong = 0, weak = 0;
  for (int y = 0; y < boundary->height; ++y) {
    const uint8_t* b = imageRow(boundary, y);
    const float* g = gradient.ptr<float>(y);
    for (int x = 0; x < boundary->width; ++x) {
      if (b[x] != 255) continue;
      ++n;
      strong += g[x] > kStrongEdge;
      weak += g[x] < kWeakEdge;
    }
  }
  cvReleaseImage(&boundary);
  cvReleaseImage(&eroded);
  return n ? static_cast<float>(static_cast<double>(strong - weak) / n) : 0.0f;
}
}  // namespace

void KORUSEHybrid::chooseIter() {
  if (!m_roiImage || !m_roiLabel || !m_iterLabel[0]) return;
  IplImage* grey = cvCreateImage(cvGetSize(m_roiImage), 8, 1);
  cvCvtColor(m_roiImage, grey, CV_BGR2GRAY);
  const cv::Mat gradient = gradientMagnitude(cv::cvarrToMat(grey));
  const float first = boundaryEdgeScore(m_iterLabel[0], gradient);
  const float last = boundaryEdgeScore(m_roiLabel, gradient);
  cvReleaseImage(&grey);
  // The first cut already followed strong edges and the later ones did not
  // improve on it by much: keep the first.
  if (first >= kFirstCutOnEdges && last <= kFinalCutNearlyPerfect &&
      last - first <= kImprovementWorthKeeping)
    cvCopy(m_iterLabel[0], m_roiLabel, nullptr);
}
