// Block heap: arenas of 1024-byte small blocks and dedicated big blocks.
#pragma once

#include "x.h"

constexpr int X_HEAP_SMALL = 256;   // largest small request
constexpr int X_HEAP_BLOCK = 1024;  // data bytes of a small block
constexpr int X_HEAP_ALIGN = 32;    // alignment of later allocations

X_heap *X_heap_new();
void *X_heap_alloc(X_heap *currheap, int size);
int X_heap_reduce(X_heap *currheap);
// X_heap_reduce then X_heap_alloc of size bytes, in one step when the arena
// holds a single small block.
void *X_heap_first(X_heap *currheap, int size);
// The start of the data area of the newest small block (X_HEAP_BLOCK bytes
// that stay readable until X_heap_free), or null.
const char *X_heap_start(const X_heap *currheap);
int X_heap_free(X_heap *currheap);
