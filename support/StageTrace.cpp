#include "support/StageTrace.h"

namespace {
StageTracer g_stageTracer = nullptr;
}

void setStageTracer(StageTracer tracer) { g_stageTracer = tracer; }

void traceStage(const char* stage, int index) {
  if (g_stageTracer) g_stageTracer(stage, index);
}
