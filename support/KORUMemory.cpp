#include "support/KORUMemory.h"


#include <cstdlib>

#include "support/KORULog.h"

namespace {
const char* const kInvalidFree = "Trying to free invalid pointer : %p in function : %s, Line : %d !";

void logNoMemory(size_t bytes, const char* function, int line) {
  logLine(ANDROID_LOG_ERROR, kTagMemory, "Failed to allocate %zu bytes in function : %s, Line : %d !",
                      bytes, function, line);
}
}  // namespace

KORU_Stack<KORU_Mem_Info*> gMemStack;

void* KORU_Malloc_Msg(size_t size, const char* function, int line) {
  void* block = malloc(size);
  if (!block) logNoMemory(size, function, line);
  return block;
}

void* KORU_Calloc_Msg(size_t count, size_t size, const char* function, int line) {
  void* block = calloc(count, size);
  if (!block) logNoMemory(count * size, function, line);
  return block;
}

void KORU_Free_Msg(void* block, const char* function, int line) {
  if (!block) {
    logLine(ANDROID_LOG_WARN, kTagMemory, kInvalidFree, block, function, line);
    return;
  }
  free(block);
}

static void track(void* block, const char* function, int line, size_t size) {
  gMemStack.push(block, new KORU_Mem_Info{line, function, static_cast<uint32_t>(size)});
}

// Drops a tracked block's record; 0, after logging `warning`, when the
// tracker does not hold it.
static int forget(void* object, const char* warning, const char* function, int line) {
  auto* node = gMemStack.unlink(object);
  KORU_Mem_Info* info = node ? node->info : nullptr;
  delete node;
  if (!info) {
    logLine(ANDROID_LOG_WARN, kTagMemory, warning, object, function, line);
    return 0;
  }
  delete info;
  return 1;
}

void* KORU_Malloc(size_t size, const char* function, int line) {
  void* block = KORU_Malloc_Msg(size, function, line);
  if (block) track(block, function, line, size);
  return block;
}

void* KORU_Calloc(size_t count, size_t size, const char* function, int line) {
  void* block = KORU_Calloc_Msg(count, size, function, line);
  if (block) track(block, function, line, count * size);
  return block;
}

void KORU_Free(void* block, const char* function, int line) {
  if (forget(block, kInvalidFree, function, line)) free(block);
}

void* KORU_New_Mngr(void* object, const char* function, int line) {
  if (!object) {
    logLine(ANDROID_LOG_ERROR, kTagMemory, "Allocation failed in function : %s, Line : %d !",
                        function, line);
    return nullptr;
  }
  track(object, function, line, 0);
  return object;
}

int KORU_Delete_Mngr(void* object, const char* function, int line) {
  return forget(object, "Trying to delete invalid pointer : %p in function : %s, Line : %d",
                function, line);
}

int KORU_Delete_Array_Mngr(void* array, const char* function, int line) {
  return forget(array, "Trying to delete invalid pointer array: %p in function : %s, Line : %d",
                function, line);
}

void KORU_check_memory_status() {
  if (!gMemStack.head) {
    logLine(ANDROID_LOG_INFO, kTagMemory, "No memory Leak found ");
    return;
  }
  // The blocks stay allocated: this is a report, not a clean-up.
  while (gMemStack.head) {
    auto* node = gMemStack.head;
    gMemStack.head = node->next;
    const KORU_Mem_Info* info = node->info;
    logLine(ANDROID_LOG_ERROR, kTagMemory,
                        "Failed to deallocate %d bytes allocated in function : %s, Line : %d",
                        static_cast<int>(info->size), info->function, info->line);
    delete info;
    delete node;
  }
}
