// Data (terminal) capacities of a whole-image graph from the two colour
// models, one thread per block of the block grid: blockDataTerm of the two
// densities (graph/DataTerms.h), each summed in float from the components'
// blockComponentTerm (colormodel/ComponentDensity.h), both models in the
// same component loop; a fixed label gets lambda on one terminal instead.
#include <opencv2/core.hpp>

#include <new>

#include "colormodel/ComponentDensity.h"
#include "graph/DataTerms.h"
#include "graph/parallel/ParallelGC.h"
#include "support/KORULog.h"

bool ParallelGC::dataTermInputs(const cv::Mat* image, const cv::Mat* labels,
                                const KORUSEColorModel* first, const KORUSEColorModel* second,
                                const KORUSEGraph* target, const char* function) const {
  const char* problem = nullptr;
  if (!image || !labels || !first || !second || !target)
    problem = "null image, labels, model or graph";
  else if (width < 1 || height < 1 || blockWidth < 1 || blockHeight < 1)
    problem = "empty block grid";
  else if (image->type() != CV_8UC3 || image->rows != height || image->cols != width)
    problem = "image is not 8-bit, 3 channels and the graph's size";
  else if (labels->type() != CV_8UC1 || labels->rows < height || labels->cols < width)
    problem = "labels are not 8-bit, 1 channel and at least the graph's size";
  else if (target->width != width || target->height != height || !target->parentArc ||
           target->nodeCount < width * height)
    problem = "graph does not have the block grid's size";
  if (!problem) return true;
  logBadCall(function, problem);
  return false;
}

void ParallelGC::ComputeGMMProbs(int blockRow, int blockColumn, const cv::Mat* image,
                                 const cv::Mat* labels, double lambda, int backgroundLabel,
                                 int objectLabel, const KORUSEColorModel* firstModel,
                                 const KORUSEColorModel* secondModel, KORUSEGraph* target,
                                 float* flowOut) {
  if (!dataTermInputs(image, labels, firstModel, secondModel, target, "ComputeGMMProbs")) return;
  if (blockRow < 0 || blockRow >= blockRows || blockColumn < 0 || blockColumn >= blockColumns) {
    logBadCall("ComputeGMMProbs", "no such block");
    return;
  }
  // A view of the block collects the flow of its terms apart from the graph's.
  KORUSEGraph view(target, blockRow, blockColumn, blockWidth, blockHeight);
  view.flowValue = 0.0f;
  const float hard = static_cast<float>(lambda);
  const int y0 = blockRow * blockHeight, x0 = blockColumn * blockWidth;
  // Clipped to the image: every pixel gets exactly one term and no block
  // reads past the last row.
  for (int y = y0; y < y0 + blockHeight && y < height; ++y) {
    const uchar* pixels = image->ptr<uchar>(y);
    const uchar* row = labels->ptr<uchar>(y);
    for (int x = x0; x < x0 + blockWidth && x < width; ++x) {
      const double pixel[3] = {static_cast<double>(pixels[3 * x]),
                               static_cast<double>(pixels[3 * x + 1]),
                               static_cast<double>(pixels[3 * x + 2])};
      float p1 = 0.0f, p2 = 0.0f;
      for (int k = 0; k < kNumComponents; ++k) {
        p1 = static_cast<float>(p1 + blockComponentTerm(*firstModel, k, pixel));
        p2 = static_cast<float>(p2 + blockComponentTerm(*secondModel, k, pixel));
      }
      const int v = row[x];
      float source, sink;
      if (v == objectLabel) {
        source = hard;
        sink = 0.0f;
      } else if (v == backgroundLabel) {
        source = 0.0f;
        sink = hard;
      } else {
        const TerminalCapacities term = blockDataTerm(p1, p2);
        source = term.source;
        sink = term.sink;
      }
      view.addtWeights(y * width + x, source, sink);
    }
  }
  if (flowOut)
    *flowOut = view.flowValue;
  else
    target->flowValue += view.flowValue;
}

void* ParallelGC::ThreadComputeGMMProbs(void* args) {
  auto* a = static_cast<DataTermThreadArgs*>(args);
  a->parallel->ComputeGMMProbs(a->blockRow, a->blockColumn, a->image, a->labels, a->lambda,
                               a->backgroundLabel, a->objectLabel, a->firstModel, a->secondModel,
                               a->graph, &a->flow);
  pthread_exit(nullptr);
}

void ParallelGC::ComputeGMMProbsParallely(const cv::Mat* image, const cv::Mat* labels,
                                          double lambda, int backgroundLabel, int objectLabel,
                                          const KORUSEColorModel* firstModel,
                                          const KORUSEColorModel* secondModel,
                                          KORUSEGraph* target) {
  if (!dataTermInputs(image, labels, firstModel, secondModel, target, "ComputeGMMProbsParallely"))
    return;
  pthread_t* threads = new (std::nothrow) pthread_t[threadCount];
  DataTermThreadArgs* args = new (std::nothrow) DataTermThreadArgs[threadCount];
  bool* started = new (std::nothrow) bool[threadCount];
  if (!threads || !args || !started) {
    logBadCall("ComputeGMMProbsParallely", "allocation failed, computing block by block");
    for (int id = 0; id < threadCount; ++id)
      ComputeGMMProbs(id / blockColumns, id % blockColumns, image, labels, lambda, backgroundLabel,
                      objectLabel, firstModel, secondModel, target);
  } else {
    for (int id = 0; id < threadCount; ++id) {
      args[id] = {this,        id,          id / blockColumns, id % blockColumns, image, labels,
                  lambda,      backgroundLabel, objectLabel,   firstModel,        secondModel,
                  target,      0.0f};
      started[id] = pthread_create(&threads[id], nullptr, ThreadComputeGMMProbs, &args[id]) == 0;
      if (!started[id])
        ComputeGMMProbs(args[id].blockRow, args[id].blockColumn, image, labels, lambda,
                        backgroundLabel, objectLabel, firstModel, secondModel, target,
                        &args[id].flow);
    }
    for (int id = 0; id < threadCount; ++id)
      if (started[id]) pthread_join(threads[id], nullptr);
    // In block order, as if the blocks had been computed one after another.
    for (int id = 0; id < threadCount; ++id) target->flowValue += args[id].flow;
  }
  delete[] threads;
  delete[] args;
  delete[] started;
}
