// Two doubles side by side in one vector register (SSE2 on x86-64, NEON on
// arm64), for the colour model's hot loops. Each lane is computed with
// exactly the IEEE operations the scalar code would apply to it, so results
// are bit for bit the scalar ones; only the instruction count changes.
#pragma once

typedef double DoublePair __attribute__((vector_size(16)));
