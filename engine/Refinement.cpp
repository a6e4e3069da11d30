// Full-resolution refinement: the cut runs on a reduced image, so its outline
// is re-cut at full resolution in a thin band. A trimap (hard background
// ring, uncertain band, hard object ring, the rest left out) comes from the
// reduced mask by morphology; the band's bounding box becomes a flow graph
// with colour-model data terms and contrast-sensitive smoothness terms.
#include <android/log.h>
#include <opencv2/imgproc/imgproc_c.h>

#include <algorithm>
#include <climits>
#include <cmath>

#include "engine/KORUSEHybrid.h"
#include "engine/RegionGraph.h"
#include "engine/SmoothnessTable.h"
#include "graph/KORUSEGraph.h"
#include "interface/KORUSEMarker.h"
#include "support/KORULog.h"
#include "support/KORUMemory.h"
#include "support/ImageRows.h"
#include "support/StageTrace.h"

namespace {
// Trimap values.
const uint8_t kBand = 0;           // decided by the cut
const uint8_t kOuterRing = 1;      // hard background
const uint8_t kInnerRing = 2;      // hard object
const uint8_t kLeftOut = 7;        // deep inside or outside: not in the graph
// How many of {dilate 3, dilate 1, erode 1, erode 3} hold a pixel -> trimap value.
const uint8_t kTrimapOfCount[5] = {kLeftOut, kOuterRing, kBand, kInnerRing, kLeftOut};
const double kDiagonalFactorWide = 0.7071067932881648;


IplImage* newImage(int w, int h, int channels, int line) {
  checkImageSize(w, h, "intelligentUpscaling", line);
  return cvCreateImage(cvSize(std::max(w, 1), std::max(h, 1)), 8, channels);
}

// The low-resolution trimap: count the morphological masks holding each pixel.
IplImage* lowResolutionTrimap(IplImage* mask) {
  IplImage* count = newImage(mask->width, mask->height, 1, 1730);
  IplImage* scratch = newImage(mask->width, mask->height, 1, 1731);
  cvSetZero(count);
  cvDilate(mask, scratch, nullptr, 3);
  cvAdd(count, scratch, count, nullptr);
  cvDilate(mask, scratch, nullptr, 1);
  cvAdd(count, scratch, count, nullptr);
  cvErode(mask, scratch, nullptr, 1);
  cvAdd(count, scratch, count, nullptr);
  cvErode(mask, scratch, nullptr, 3);
  cvAdd(count, scratch, count, nullptr);
  for (int y = 0; y < count->height; ++y) {
    uint8_t* r = imageRow(count, y);
    for (int x = 0; x < count->width; ++x) r[x] = kTrimapOfCount[std::min<int>(r[x], 4)];
  }
  cvReleaseImage(&scratch);
  return count;
}

IplImage* enlarged(const IplImage* src, int line) {
  IplImage* out = newImage(KORUSEMarker::m_originalWidth, KORUSEMarker::m_originalHeight,
                           src->nChannels, line);
  cvResize(src, out, CV_INTER_NN);
  return out;
}

// Plain nearest-neighbour enlargement of the 0/1 mask as 0/255.
IplImage* fallbackEnlargement(IplImage* mask) {
  for (int y = 0; y < mask->height; ++y) {
    uint8_t* r = imageRow(mask, y);
    for (int x = 0; x < mask->width; ++x)
      if (r[x] == 1) r[x] = 255;
  }
  return enlarged(mask, 1805);
}
}  // namespace

IplImage* KORUSEHybrid::cropImageTrimap(IplImage* src, int width, int height, int x0, int y0) {
  checkImageSize(width, height, "cropImageTrimap", 1762);
  IplImage* crop = cvCreateImage(cvSize(std::max(m_trimapWidth, 1), std::max(m_trimapHeight, 1)),
                                 src->depth, src->nChannels);
  const int bytes = crop->width * src->nChannels * (src->depth / 8);
  for (int r = 0; r < crop->height; ++r)
    std::copy_n(imageRow(src, y0 + r) + x0 * src->nChannels * (src->depth / 8), bytes, imageRow(crop, r));
  return crop;
}

IplImage* KORUSEHybrid::intelligentUpscaling(IplImage* mask) {
  m_trimapGraph = nullptr;
  traceStage("refinement: trimap");
  IplImage* lowTrimap = lowResolutionTrimap(mask);
  IplImage* labels = enlarged(KORUSEMarker::m_labelImage, 1760);
  IplImage* trimap = enlarged(lowTrimap, 1761);
  cvReleaseImage(&lowTrimap);

  int xmin = INT_MAX, xmax = -1, ymin = INT_MAX, ymax = -1;
  for (int y = 0; y < trimap->height; ++y) {
    const uint8_t* r = imageRow(trimap, y);
    for (int x = 0; x < trimap->width; ++x)
      if (r[x] != kLeftOut) {
        xmin = std::min(xmin, x);
        xmax = std::max(xmax, x);
        ymin = std::min(ymin, y);
        ymax = std::max(ymax, y);
      }
  }
  const bool accepted = xmin < trimap->width && ymin < trimap->height && xmax >= 0 && ymax >= 0 &&
                        xmax - xmin >= 0 && ymax - ymin >= 0;
  int status = -1;
  if (!accepted) {
    __android_log_print(ANDROID_LOG_ERROR, "Error", "Failed: xmin:%d, xmax:%d, ymin:%d, ymax:%d",
                        xmin, xmax, ymin, ymax);
  } else {
    __android_log_print(ANDROID_LOG_INFO, "Info", "Passed: xmin:%d, xmax:%d, ymin:%d, ymax:%d",
                        xmin, xmax, ymin, ymax);
    m_trimapWidth = std::min(xmax - xmin + 1, KORUSEMarker::m_originalWidth);
    m_trimapHeight = std::min(ymax - ymin + 1, KORUSEMarker::m_originalHeight);
    __android_log_print(ANDROID_LOG_INFO, "Info", "m_boundWidthTrimap:%d, m_boundHeightTrimap:%d",
                        m_trimapWidth, m_trimapHeight);
    IplImage* trimapCrop = cropImageTrimap(trimap, m_trimapWidth, m_trimapHeight, xmin, ymin);
    IplImage* imageCrop = cropImageTrimap(KORUSEMarker::m_originalImage, m_trimapWidth,
                                          m_trimapHeight, xmin, ymin);
    IplImage *texHorCrop = nullptr, *texVerCrop = nullptr;
    if (KORUSEMarker::m_isGreyScale && KORUSEMarker::m_texHor && KORUSEMarker::m_texVer) {
      IplImage* texHor = enlarged(KORUSEMarker::m_texHor, 1790);
      IplImage* texVer = enlarged(KORUSEMarker::m_texVer, 1791);
      texHorCrop = cropImageTrimap(texHor, m_trimapWidth, m_trimapHeight, xmin, ymin);
      texVerCrop = cropImageTrimap(texVer, m_trimapWidth, m_trimapHeight, xmin, ymin);
      cvReleaseImage(&texHor);
      cvReleaseImage(&texVer);
    }
    traceStage("refinement: graph");
    status = constructGraphTrimapKORU(imageCrop, imageCrop, trimapCrop, texHorCrop, texVerCrop);
    if (status != 0) {
      __android_log_print(ANDROID_LOG_ERROR, "Error",
                          "Failed: intelligentUpscaling (status_flag = %d)", status);
    } else {
      traceStage("refinement: search");
      m_trimapGraph->maxFlow();
      traceStage("refinement: labels");
      for (int y = 0; y < m_trimapHeight; ++y) {
        const uint8_t* t = imageRow(trimapCrop, y);
        uint8_t* l = imageRow(labels, ymin + y) + xmin;
        for (int x = 0; x < m_trimapWidth; ++x)
          if (t[x] == kBand)
            l[x] = m_trimapGraph->getTreeofNode(y * m_trimapWidth + x) ? MARK_PROBABLE_BACKGROUND
                                                                       : MARK_PROBABLE_OBJECT;
      }
    }
    delete m_trimapGraph;
    m_trimapGraph = nullptr;
    for (IplImage* image : {trimapCrop, imageCrop, texHorCrop, texVerCrop})
      if (image) cvReleaseImage(&image);
  }
  cvReleaseImage(&trimap);

  IplImage* result;
  if (status == 0) {
    result = newImage(labels->width, labels->height, 1, 1780);
    for (int y = 0; y < labels->height; ++y) {
      const uint8_t* l = imageRow(labels, y);
      uint8_t* out = imageRow(result, y);
      for (int x = 0; x < labels->width; ++x)
        out[x] = (l[x] == MARK_PROBABLE_OBJECT || l[x] == MARK_OBJECT) ? 255 : 0;
    }
  } else {
    result = fallbackEnlargement(mask);
    m_trimapWidth = m_trimapHeight = 0;
  }
  cvReleaseImage(&labels);
  return result;
}

// (source, sink) of a band pixel: -log of the other side's density, the
// logarithm in double and negated after conversion to float.
static DataTerm bandDataTerm(const KORUSEColorModel& fg, const KORUSEColorModel& bg,
                             const pixelVal& sample) {
  return {-static_cast<float>(std::log(bg.GMMProb(sample))),
          -static_cast<float>(std::log(fg.GMMProb(sample)))};
}

int KORUSEHybrid::constructGraphTrimapKORU(IplImage* image, IplImage*, IplImage* trimap,
                                           IplImage* texHor, IplImage* texVer) {
  const int w = m_trimapWidth, h = m_trimapHeight, n = w * h;
  m_trimapGraph = new KORUSEGraph(n, 8 * n, w, h, 0);
  if (!m_trimapGraph->parentArc || !m_trimapGraph->arcArray) return 1;
  float* table = static_cast<float*>(KORU_Malloc_Msg(1024, "constructGraphTrimapKORU", 2385));
  if (!table) return 2;
  m_trimapGraph->reset();
  m_trimapGraph->addNode(n);
  const bool grey = KORUSEMarker::m_isGreyScale && texHor && texVer;

  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      DataTerm term{0.0, 0.0};
      switch (imageRow(trimap, y)[x]) {
        case kOuterRing: term = {0.0, kHardCapacity}; break;
        case kInnerRing: term = {kHardCapacity, 0.0}; break;
        case kBand: {
          const uint8_t* c = imageRow(image, y) + 3 * x;
          const pixelVal sample =
              grey ? pixelVal{{double(c[0]), double(imageRow(texHor, y)[x]), double(imageRow(texVer, y)[x])}}
                   : pixelVal{{double(c[0]), double(c[1]), double(c[2])}};
          term = bandDataTerm(m_fgModel, m_bgModel, sample);
          break;
        }
        default: break;
      }
      addDataTerm(*m_trimapGraph, y * w + x, term);
    }

  fillContrastTable(table, m_beta);
  const float diagonal = static_cast<float>(m_lambda * kDiagonalFactorWide);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const bool leftOut = imageRow(trimap, y)[x] == kLeftOut;
      const uint8_t* p = imageRow(image, y) + 3 * x;
      const int node = y * w + x;
      for (int slot = 0; slot < 4; ++slot) {
        const int nx = x + kSlotDx[slot], ny = y + kSlotDy[slot];
        if (leftOut || ny < 0 || nx < 0 || nx >= w || imageRow(trimap, ny)[nx] == kLeftOut) {
          m_trimapGraph->addEdge(node, -1, 0.0f, 0.0f, true);
          continue;
        }
        const uint8_t* q = imageRow(image, ny) + 3 * nx;
        const float t0 = table[std::abs(p[0] - q[0])], t1 = table[std::abs(p[1] - q[1])],
                    t2 = table[std::abs(p[2] - q[2])];
        float cap;
        if (slot == 0)
          cap = static_cast<float>(m_lambda);  // no contrast term across columns: kept so
        else if (slot == 2)
          cap = static_cast<float>(m_lambda * t0 * t1 * t2);
        else
          cap = diagonal * t0 * t1 * t2;
        m_trimapGraph->addEdge(node, ny * w + nx, cap, cap, false);
      }
    }
  KORU_Free_Msg(table, "constructGraphTrimapKORU", 2631);
  return 0;
}
