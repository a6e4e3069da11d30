#include "colormodel/TrainingData.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <new>

#include "colormodel/KMeansInit.h"
#include "interface/session/KORUSEMarker.h"
#include "support/ImageRows.h"
#include "support/KORULog.h"
#include "support/Marks.h"

namespace {

bool is8Bit(const IplImage* img) { return img && img->depth == IPL_DEPTH_8U && img->imageData; }

// Image and label image usable together; logs why not. Rows and columns
// to scan are the common part of the two (they should be equal).
bool scanSize(const IplImage* image, const IplImage* labels, int minChannels, const char* function,
              int* rows, int* cols) {
  *rows = *cols = 0;
  if (!image || !labels) return false;  // nothing labelled: fillers only
  if (!is8Bit(image) || !is8Bit(labels) || image->nChannels < minChannels) {
    logBadCall(function, "image or label image unusable; no pixel read");
    return false;
  }
  if (image->width != labels->width || image->height != labels->height)
    logBadCall(function, "image and label image differ in size; common part read");
  *rows = std::min(image->height, labels->height);
  *cols = std::min(image->width, labels->width);
  return *rows > 0 && *cols > 0;
}

// The texture planes cover the crop at the current origin.
bool texturesCover(int rows, int cols) {
  const IplImage* hor = KORUSEMarker::m_texHor;
  const IplImage* ver = KORUSEMarker::m_texVer;
  const int x0 = KORUSEMarker::m_xMinBBox;
  const int y0 = KORUSEMarker::m_yMinBBox;
  for (const IplImage* t : {hor, ver})
    if (!is8Bit(t) || x0 < 0 || y0 < 0 || x0 + cols > t->width || y0 + rows > t->height) return false;
  return true;
}

void appendLabelled(unsigned char label, const pixelVal& s, std::vector<pixelVal>& first,
                    std::vector<pixelVal>& second) {
  if (isBackground(label))
    second.push_back(s);
  else if (isObject(label))
    first.push_back(s);
}

void readSamples(const IplImage* image, const IplImage* labels, std::vector<pixelVal>& first,
                 std::vector<pixelVal>& second) {
  const bool grey = KORUSEMarker::m_isGreyScale;
  int rows, cols;
  if (!scanSize(image, labels, grey ? 1 : 3, "extractTrainingData", &rows, &cols)) return;
  if (grey && !texturesCover(rows, cols)) {
    logBadCall("extractTrainingData", "texture planes do not cover the region; no pixel read");
    return;
  }
  const int x0 = KORUSEMarker::m_xMinBBox;
  const int y0 = KORUSEMarker::m_yMinBBox;
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x) {
      const unsigned char label = *imagePixel(labels, x, y);
      if (!isObject(label) && !isBackground(label)) continue;
      const unsigned char* p = imagePixel(image, x, y);
      pixelVal s;
      if (grey) {
        s = {{static_cast<double>(p[0]),
              static_cast<double>(*imagePixel(KORUSEMarker::m_texHor, x0 + x, y0 + y)),
              static_cast<double>(*imagePixel(KORUSEMarker::m_texVer, x0 + x, y0 + y))}};
      } else {
        s = {{static_cast<double>(p[0]), static_cast<double>(p[1]), static_cast<double>(p[2])}};
      }
      appendLabelled(label, s, first, second);
    }
  }
}

}  // namespace

bool order(vec4 a, vec4 b) { return !(a.v[3] >= b.v[3]); }

void extractTrainingData(const IplImage* image, const IplImage* labels,
                         std::vector<pixelVal>& first, std::vector<pixelVal>& second) {
  first.clear();
  second.clear();
  try {
    readSamples(image, labels, first, second);
    while (first.size() < static_cast<std::size_t>(kMinTrainingSamples)) first.push_back(kFillerSample);
    while (second.size() < static_cast<std::size_t>(kMinTrainingSamples)) second.push_back(kFillerSample);
  } catch (const std::bad_alloc&) {
    logBadCall("extractTrainingData", "out of memory; sample sets incomplete");
  }
}

void initModel(const std::vector<pixelVal>& samples, KORUSEColorModel& model, int) {
  initModelWithKmeansKORU(samples, model);
}

void initModel(const std::vector<pixelVal>& first, const std::vector<pixelVal>& second,
               KORUSEColorModel& firstModel, KORUSEColorModel& secondModel, int) {
  initModelWithKmeansKORU(first, firstModel);
  initModelWithKmeansKORU(second, secondModel);
}

namespace {

// Set A: every label but 1 and 3; set B: labels 1 and 3. Pixels are read as
// OpenCV scalars, of which the first three values are used.
void splitByBackground(const IplImage* image, const IplImage* labels, std::vector<pixelVal>& a,
                       std::vector<pixelVal>& b) {
  int rows, cols;
  if (!scanSize(image, labels, 1, "initThirdInitalization", &rows, &cols)) return;
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x) {
      const CvScalar s = cvGet2D(image, y, x);
      const pixelVal sample = {{s.val[0], s.val[1], s.val[2]}};
      (isBackground(*imagePixel(labels, x, y)) ? b : a).push_back(sample);
    }
  }
}

// Ascending by score; NaN scores have no place in that order (the
// comparison is not a strict weak order for them), so they go first.
void sortByScore(std::vector<vec4>& scored) {
  auto nanFirst = std::stable_partition(scored.begin(), scored.end(),
                                        [](const vec4& e) { return std::isnan(e.v[3]); });
  std::sort(nanFirst, scored.end(), order);
}

}  // namespace

void initThirdInitalization(const IplImage* image, const IplImage* labels,
                            KORUSEColorModel& firstModel, KORUSEColorModel& secondModel) {
  try {
    std::vector<pixelVal> a, b;
    splitByBackground(image, labels, a, b);
    initModelWithKmeans(b, secondModel);

    std::vector<vec4> scored;
    scored.reserve(a.size());
    for (const pixelVal& s : a) scored.push_back({{s.v[0], s.v[1], s.v[2], secondModel.GMMProb(s)}});
    sortByScore(scored);

    // Least B-like third stays A, most B-like third joins B, middle dropped.
    a.clear();
    if (scored.size() >= 3) {
      const std::size_t third = scored.size() / 3;
      for (std::size_t i = 0; i < third; ++i) a.push_back({{scored[i].v[0], scored[i].v[1], scored[i].v[2]}});
      for (std::size_t i = 0; i < third; ++i) {
        const vec4& e = scored[scored.size() - 1 - i];
        b.push_back({{e.v[0], e.v[1], e.v[2]}});
      }
    }
    initModelWithKmeansKORU(a, firstModel);
    initModelWithKmeansKORU(b, secondModel);
  } catch (const std::bad_alloc&) {
    logBadCall("initThirdInitalization", "out of memory; models partly initialised");
  }
}
