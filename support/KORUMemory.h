// Allocation layer, two flavours.
//
// Message flavour: malloc/calloc/free that only log a failure (tag "TAG_MEM").
// The engine, the graph and the timers use it, always passing the caller's
// name and a line number. No shared state: safe from worker threads.
//
// Tracked flavour: additionally records every live block in gMemStack so that
// KORU_check_memory_status can report leaks. Exported for the host; not used
// inside the library. Not locked: one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "support/KORULog.h"

// ---- message flavour ---------------------------------------------------------

// Returns the block, or null after logging "Failed to allocate %zu bytes ...".
void* KORU_Malloc_Msg(size_t size, const char* function, int line);
// Zeroed block of count*size bytes, or null after logging.
void* KORU_Calloc_Msg(size_t count, size_t size, const char* function, int line);
// free(); a null pointer is logged as invalid and ignored.
void KORU_Free_Msg(void* block, const char* function, int line);

// The same at a named place (support/LogSites.h).
inline void* KORU_Malloc_Msg(size_t size, LogSite site) { return KORU_Malloc_Msg(size, site.function, site.line); }
inline void* KORU_Calloc_Msg(size_t count, size_t size, LogSite site) {
  return KORU_Calloc_Msg(count, size, site.function, site.line);
}
inline void KORU_Free_Msg(void* block, LogSite site) { KORU_Free_Msg(block, site.function, site.line); }

// ---- tracked flavour ---------------------------------------------------------

struct KORU_Mem_Info {
  int32_t line;          // caller's line number
  const char* function;  // caller's name, not copied
  uint32_t size;         // bytes; 0 for objects registered by KORU_New_Mngr
};

// Singly linked stack keyed by block address; new nodes go on the head.
template <typename T>
struct KORU_Stack {
  struct Node {
    void* key;   // the block's address
    T info;
    Node* next;
  };
  Node* head = nullptr;

  void push(void* key, T info) { head = new Node{key, info, head}; }
  // Unlinks the first node with this key; null when there is none.
  Node* unlink(void* key) {
    for (Node** link = &head; *link; link = &(*link)->next) {
      if ((*link)->key == key) {
        Node* found = *link;
        *link = found->next;
        return found;
      }
    }
    return nullptr;
  }
  // Deletes the nodes only: neither the info records nor the blocks.
  ~KORU_Stack() {
    while (head) {
      Node* next = head->next;
      delete head;
      head = next;
    }
  }
};

extern KORU_Stack<KORU_Mem_Info*> gMemStack;

void* KORU_Malloc(size_t size, const char* function, int line);
void* KORU_Calloc(size_t count, size_t size, const char* function, int line);
// Frees a tracked block; an unknown block is logged and left alone.
void KORU_Free(void* block, const char* function, int line);

// Registers an object just made with new; returns it (null is logged).
void* KORU_New_Mngr(void* object, const char* function, int line);
// 1 when the object was registered (the caller then deletes it), else 0.
int KORU_Delete_Mngr(void* object, const char* function, int line);
int KORU_Delete_Array_Mngr(void* array, const char* function, int line);

// Logs every live tracked block and empties the list ("No memory Leak found ").
void KORU_check_memory_status();
