// Full-resolution refinement: the cut runs on a reduced image, so its outline
// is re-cut at full resolution in a thin band. A trimap (hard background
// ring, uncertain band, hard object ring, the rest left out) comes from the
// reduced mask by morphology; the band's pixels become a flow graph with
// colour-model data terms and contrast-sensitive smoothness terms.
//
// The enlarged trimap and labels are never made: every full-size pixel is
// read from its working-size pixel through the nearest-neighbour maps
// (support/NearestSampling.h), and only the result is full size.
#include <opencv2/imgproc/imgproc_c.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "engine/BandGraph.h"
#include "engine/BandPixels.h"
#include "engine/KORUSEHybrid.h"
#include "graph/KORUSEGraph.h"
#include "graph/parallel/StripeSearch.h"
#include "interface/session/Cancellation.h"
#include "interface/session/KORUSEMarker.h"
#include "support/ImageRows.h"
#include "support/KORULog.h"
#include "support/FreshPages.h"
#include "support/LogSites.h"
#include "support/Marks.h"
#include "support/NearestSampling.h"
#include "support/StageTrace.h"
#include "support/ThreadSetting.h"
#include "support/WorkerPool.h"

namespace {
// How many of {dilate 3, dilate 1, erode 1, erode 3} hold a pixel -> trimap value.
const uint8_t kTrimapOfCount[5] = {kTrimapLeftOut, kTrimapOuterRing, kTrimapBand, kTrimapInnerRing,
                                   kTrimapLeftOut};

IplImage* newImage(int w, int h, int channels, LogSite site) {
  checkImageSize(w, h, site);
  return cvCreateImage(cvSize(std::max(w, 1), std::max(h, 1)), 8, channels);
}

// The low-resolution trimap: count the morphological masks holding each pixel.
IplImage* lowResolutionTrimap(IplImage* mask) {
  IplImage* count = newImage(mask->width, mask->height, 1, site::upscalingSum);
  IplImage* scratch = newImage(mask->width, mask->height, 1, site::upscalingScratch);
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

// Plain nearest-neighbour enlargement of the 0/1 mask as 0/255.
IplImage* fallbackEnlargement(IplImage* mask) {
  for (int y = 0; y < mask->height; ++y) {
    uint8_t* r = imageRow(mask, y);
    for (int x = 0; x < mask->width; ++x)
      if (r[x] == 1) r[x] = 255;
  }
  IplImage* out = newImage(KORUSEMarker::m_originalWidth, KORUSEMarker::m_originalHeight, 1, site::upscalingFallback);
  cvResize(mask, out, CV_INTER_NN);
  return out;
}

// The enlarged trimap, row by row: the segments of equal value (left-out
// pixels dropped) that a full-size row of the enlargement of the working-size
// trimap consists of, in full-size columns.
class EnlargedTrimap {
 public:
  EnlargedTrimap(const IplImage* low, const NearestSampling& maps) : low_(low), maps_(maps) {}

  // Segments of full-size row y, appended to `out`, clipped to columns
  // [x0, x1) and shifted by -x0.
  void row(int y, int x0, int x1, std::vector<TrimapSegment>& out) const {
    const uint8_t* t = imageRow(low_, maps_.row[y]);
    for (int c = 0; c < low_->width;) {
      const int start = c;
      while (c < low_->width && t[c] == t[start]) ++c;
      if (t[start] == kTrimapLeftOut) continue;
      int begin = INT_MAX, end = INT_MIN;  // the full columns taking low columns start .. c - 1
      for (int k = start; k < c; ++k)
        if (maps_.firstColumn[k] <= maps_.lastColumn[k]) {
          begin = std::min(begin, maps_.firstColumn[k]);
          end = std::max(end, maps_.lastColumn[k] + 1);
        }
      begin = std::max(begin, x0);
      end = std::min(end, x1);
      if (begin < end) out.push_back({begin - x0, end - x0, t[start]});
    }
  }

 private:
  const IplImage* low_;
  const NearestSampling& maps_;
};

// The refinement reads every full-size pixel through the maps instead of
// making the enlarged labels, trimap and texture planes and their crops to
// the band's box; the size checks those images had still speak, in the
// order they were made, since hosts know the log as it was.
void checkEnlargedSizes(int width, int height) {
  checkImageSize(width, height, site::upscalingLabels);
  checkImageSize(width, height, site::upscalingTrimap);
}
void checkCropSizes(int fullWidth, int fullHeight, int boxWidth, int boxHeight, bool texture) {
  for (int crop = 0; crop < 2; ++crop) checkImageSize(boxWidth, boxHeight, site::cropImageTrimap);  // trimap, image
  if (!texture) return;
  checkImageSize(fullWidth, fullHeight, site::upscalingTexHor);
  checkImageSize(fullWidth, fullHeight, site::upscalingTexVer);
  for (int crop = 0; crop < 2; ++crop) checkImageSize(boxWidth, boxHeight, site::cropImageTrimap);  // both planes
}

struct Box {
  int xmin = INT_MAX, xmax = -1, ymin = INT_MAX, ymax = -1;
};

// The bounding box of the enlarged trimap's pixels that are not left out.
Box bandBox(const EnlargedTrimap& trimap, int width, int height) {
  Box box;
  std::vector<TrimapSegment> row;
  for (int y = 0; y < height; ++y) {
    row.clear();
    trimap.row(y, 0, width, row);
    if (row.empty()) continue;
    box.ymin = std::min(box.ymin, y);
    box.ymax = std::max(box.ymax, y);
    box.xmin = std::min(box.xmin, row.front().begin);
    box.xmax = std::max(box.xmax, row.back().end - 1);
  }
  return box;
}

// The band's picture read through the maps, straight from the full image.
BandPicture mappedPicture(const EnlargedTrimap& trimap, const NearestSampling& maps, const Box& box, int w,
                          int h) {
  BandPicture band;
  band.width = w;
  band.height = h;
  band.rowFirstSegment.push_back(0);
  for (int y = 0; y < h; ++y) {
    trimap.row(box.ymin + y, box.xmin, box.xmin + w, band.segments);
    band.rowFirstSegment.push_back(static_cast<int32_t>(band.segments.size()));
  }
  band.image = KORUSEMarker::m_originalImage;
  band.imageX = box.xmin;
  band.imageY = box.ymin;
  if (KORUSEMarker::m_isGreyScale && KORUSEMarker::m_texHor && KORUSEMarker::m_texVer) {
    band.texHor = KORUSEMarker::m_texHor;
    band.texVer = KORUSEMarker::m_texVer;
    band.texColumn.assign(maps.column.begin() + box.xmin, maps.column.begin() + box.xmin + w);
    band.texRow.assign(maps.row.begin() + box.ymin, maps.row.begin() + box.ymin + h);
  }
  return band;
}

// Where the band's pixels fell: on the cut's sides, or (a cancel before the
// search) on their data terms' sides.
struct BandSides {
  const KORUSEGraph* graph = nullptr;
  std::vector<uint8_t> ofDataTerms;
  bool background(int node) const { return graph ? graph->getTreeofNode(node) : ofDataTerms[node] != 0; }
};

// The result: 255 where the enlarged labels are object, except in the band,
// where the cut decides (band pixels numbered as the graph with the rings
// merged numbers them). Rows are written in parallel ranges.
void writeResult(IplImage* result, const IplImage* labels, const NearestSampling& maps, const BandPicture& band,
                 const Box& box, const BandSides& sides, int threads) {
  const std::vector<int32_t> first = band.firstBandPixelOfRow();
  runRanges(result->height, threads, 64, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      uint8_t* out = imageRow(result, y);
      const uint8_t* l = imageRow(labels, maps.row[y]);
      for (int c = 0; c < labels->width; ++c)
        if (maps.firstColumn[c] <= maps.lastColumn[c])
          std::memset(out + maps.firstColumn[c], isObject(l[c]) ? 255 : 0,
                      maps.lastColumn[c] - maps.firstColumn[c] + 1);
      const int by = y - box.ymin;
      if (by < 0 || by >= band.height) continue;
      int node = first[by];
      for (int s = band.rowFirstSegment[by]; s < band.rowFirstSegment[by + 1]; ++s) {
        const TrimapSegment& seg = band.segments[s];
        if (seg.value != kTrimapBand) continue;
        for (int x = seg.begin; x < seg.end; ++x, ++node) out[box.xmin + x] = sides.background(node) ? 0 : 255;
      }
    }
  });
}

// The band's cut: its graph, the rings merged, and the search, on up to
// `threads` threads. A cancel that comes before the search starts leaves
// every band pixel where the search's first trees put it, on its data
// term's side: the graph records those as it is built, and stops being
// built at the cancel. 0 when the sides are known, else the graph build's
// status (logged).
int cutBand(KORUSEHybrid& e, const BandPicture& band, BandSides& sides, int threads) {
  if (cancelRequested()) {
    sides.ofDataTerms = bandSidesOfDataTerms(e, band, threads);
    return 0;
  }
  bool finished = false;
  const int status = buildMergedBandGraph(e, band, threads, &sides.ofDataTerms, true, &finished);
  if (status != 0) {
    logLine(ANDROID_LOG_ERROR, kTagError, "Failed: intelligentUpscaling (status_flag = %d)", status);
    return status;
  }
  traceStage("refinement: search");
  if (finished && !cancelRequested()) {
    stripedMaxFlow(*e.m_trimapGraph, threads);
    sides.graph = e.m_trimapGraph;
  }
  traceStage("refinement: labels");
  return 0;
}

}  // namespace

IplImage* KORUSEHybrid::cropImageTrimap(IplImage* src, int width, int height, int x0, int y0) {
  checkImageSize(width, height, site::cropImageTrimap);
  IplImage* crop = cvCreateImage(cvSize(std::max(m_trimapWidth, 1), std::max(m_trimapHeight, 1)),
                                 src->depth, src->nChannels);
  const int bytes = crop->width * src->nChannels * (src->depth / 8);
  for (int r = 0; r < crop->height; ++r)
    std::copy_n(imageRow(src, y0 + r) + x0 * src->nChannels * (src->depth / 8), bytes, imageRow(crop, r));
  return crop;
}

IplImage* KORUSEHybrid::intelligentUpscaling(IplImage* mask) {
  m_trimapGraph = nullptr;
  if (!mask || !KORUSEMarker::m_labelImage || !KORUSEMarker::m_originalImage ||
      mask->width != KORUSEMarker::m_labelImage->width || mask->height != KORUSEMarker::m_labelImage->height) {
    logBadCall("intelligentUpscaling", "no mask, labels or photo, or a mask of another size than the labels");
    return nullptr;
  }
  traceStage("refinement: trimap");
  const int fullWidth = KORUSEMarker::m_originalWidth, fullHeight = KORUSEMarker::m_originalHeight;
  IplImage* lowTrimap = lowResolutionTrimap(mask);
  checkEnlargedSizes(fullWidth, fullHeight);
  const IplImage* labels = KORUSEMarker::m_labelImage;
  const NearestSampling maps = nearestSampling(labels->width, labels->height, std::max(fullWidth, 1),
                                               std::max(fullHeight, 1));
  const EnlargedTrimap trimap(lowTrimap, maps);
  const Box box = bandBox(trimap, std::max(fullWidth, 1), std::max(fullHeight, 1));

  const bool accepted = box.xmin < fullWidth && box.ymin < fullHeight && box.xmax >= 0 && box.ymax >= 0 &&
                        box.xmax - box.xmin >= 0 && box.ymax - box.ymin >= 0;
  int status = -1;
  BandPicture band;
  BandSides sides;
  const int threads = segmentationThreads();
  if (!accepted) {
    logLine(ANDROID_LOG_ERROR, kTagError, "Failed: xmin:%d, xmax:%d, ymin:%d, ymax:%d", box.xmin,
                        box.xmax, box.ymin, box.ymax);
  } else {
    logLine(ANDROID_LOG_INFO, kTagInfo, "Passed: xmin:%d, xmax:%d, ymin:%d, ymax:%d", box.xmin,
                        box.xmax, box.ymin, box.ymax);
    m_trimapWidth = std::min(box.xmax - box.xmin + 1, fullWidth);
    m_trimapHeight = std::min(box.ymax - box.ymin + 1, fullHeight);
    logLine(ANDROID_LOG_INFO, kTagInfo, "m_boundWidthTrimap:%d, m_boundHeightTrimap:%d",
                        m_trimapWidth, m_trimapHeight);
    checkCropSizes(fullWidth, fullHeight, m_trimapWidth, m_trimapHeight,
                   KORUSEMarker::m_isGreyScale && KORUSEMarker::m_texHor && KORUSEMarker::m_texVer);
    traceStage("refinement: graph");
    band = mappedPicture(trimap, maps, box, m_trimapWidth, m_trimapHeight);
    status = cutBand(*this, band, sides, threads);
  }

  IplImage* result;
  if (status == 0) {
    result = newImage(fullWidth, fullHeight, 1, site::upscalingResult);
    mapPagesForWriting(result->imageData, result->imageSize);
    writeResult(result, labels, maps, band, box, sides, threads);
  } else {
    result = fallbackEnlargement(mask);
    m_trimapWidth = m_trimapHeight = 0;
  }
  delete m_trimapGraph;
  m_trimapGraph = nullptr;
  cvReleaseImage(&lowTrimap);
  return result;
}

int KORUSEHybrid::constructGraphTrimapKORU(IplImage* image, IplImage*, IplImage* trimap, IplImage* texHor,
                                           IplImage* texVer) {
  const auto covers = [trimap](const IplImage* crop, int channels) {
    return crop && crop->depth == IPL_DEPTH_8U && crop->nChannels == channels && crop->width >= trimap->width &&
           crop->height >= trimap->height;
  };
  if (!trimap || trimap->depth != IPL_DEPTH_8U || trimap->nChannels != 1 || !covers(image, 3) ||
      ((texHor || texVer) && !(covers(texHor, 1) && covers(texVer, 1)))) {
    logBadCall("constructGraphTrimapKORU", "crops missing, too small or not 8-bit");
    return 1;
  }
  return buildBandGraph(*this, pictureOfCrops(image, trimap, texHor, texVer), BandRings::kept);
}
