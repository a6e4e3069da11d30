// The places the log names ("MEMORY_CRASH : <function> <line>", the
// allocation failures and the leak report), one home for all of them.
//
// The numbers are the system's own historical line numbers, not lines of
// these files: hosts and their crash reports know them, so they never
// change. Buffers of this library's own that no host knows use
// LOG_SITE_HERE, the line of the call.
#pragma once

#include "support/KORULog.h"

#define LOG_SITE_HERE(function) (LogSite{(function), __LINE__})

namespace site {
// ---- interface ----------------------------------------------------------------
constexpr LogSite setSourceImage{"setSourceImage", 115};
constexpr LogSite setMarkerImage{"setMarkerImage", 164};          // before the buffer is viewed
constexpr LogSite setMarkerImageViewed{"setMarkerImage", 173};    // after
constexpr LogSite cutOutImage{"cutOutImage", 197};
constexpr LogSite loadBlendedImageInfo{"loadBlendedImageInfo", 493};

// ---- history ------------------------------------------------------------------
constexpr LogSite getMask{"getMask", 92};

// ---- engine: object, labels, pre- and post-processing --------------------------
constexpr LogSite engineDestructor{"~KORUSEHybrid", 66};
constexpr LogSite intializerFullSize{"intializer", 92};
constexpr LogSite intializerReduced{"intializer", 103};
constexpr LogSite intializerWeights{"intializer", 110};    // the weights of an earlier photo freed
constexpr LogSite setLabelImage{"setLabelImage", 223};
constexpr LogSite cropImage{"cropImage", 850};
constexpr LogSite getObjMask{"getObjMask", 1410};
constexpr LogSite postProcessForStroke{"postProcessForStroke", 1694};
constexpr LogSite computeTextureHor{"computeTexture", 2817};
constexpr LogSite computeTextureVer{"computeTexture", 2818};
constexpr LogSite preProcess{"preProcess", 2940};

// ---- engine: smoothness weights and their selection ----------------------------
constexpr LogSite computeNlinksWeights{"computeNlinks", 503};
constexpr LogSite computeNlinksTable{"computeNlinks", 509};
constexpr LogSite computeNlinksTableFreed{"computeNlinks", 651};
constexpr LogSite optimalLamda{"optimalLamda", 3107};
constexpr LogSite optimalLamdaCounts{"optimalLamda", 3136};
constexpr LogSite optimalLamdaCountsFreed{"optimalLamda", 3165};

// ---- engine: full-resolution refinement ----------------------------------------
constexpr LogSite upscalingSum{"intelligentUpscaling", 1730};      // the morphology count
constexpr LogSite upscalingScratch{"intelligentUpscaling", 1731};
constexpr LogSite upscalingLabels{"intelligentUpscaling", 1760};   // the enlarged labels
constexpr LogSite upscalingTrimap{"intelligentUpscaling", 1761};   // the enlarged trimap
constexpr LogSite upscalingResult{"intelligentUpscaling", 1780};
constexpr LogSite upscalingTexHor{"intelligentUpscaling", 1790};   // the enlarged texture planes
constexpr LogSite upscalingTexVer{"intelligentUpscaling", 1791};
constexpr LogSite upscalingFallback{"intelligentUpscaling", 1805};
constexpr LogSite cropImageTrimap{"cropImageTrimap", 1762};
constexpr LogSite bandContrastTable{"constructGraphTrimapKORU", 2385};
constexpr LogSite bandContrastTableFreed{"constructGraphTrimapKORU", 2631};

// ---- graph and timers ----------------------------------------------------------
constexpr LogSite graphNodes{"KORUSEGraph", 53};
constexpr LogSite graphArcs{"KORUSEGraph", 54};
constexpr LogSite graphNodesFreed{"~KORUSEGraph", 128};
constexpr LogSite graphArcsFreed{"~KORUSEGraph", 129};
constexpr LogSite createTimer{"create_timer", 27};
constexpr LogSite destroyTimer{"destroy_timer", 48};
}  // namespace site
