// Memory for RapidJSON.
#ifndef KORVANDIS_QNX_PPS_MEMORY_H
#define KORVANDIS_QNX_PPS_MEMORY_H

#include <cstddef>
#include <cstdlib>
#include <new>

namespace qnx {

// RapidJSON uses memory without asking whether it got any. Here it gets some or std::bad_alloc,
// which the calls of pps.h turn into NO_MEM.
struct Memory {
  static const bool kNeedFree = true;
  void* Malloc(std::size_t size) { return Realloc(nullptr, 0, size); }
  void* Realloc(void* old, std::size_t, std::size_t size) {
    if (size == 0) {
      std::free(old);
      return nullptr;
    }
    void* const fresh = std::realloc(old, size);
    if (fresh == nullptr) throw std::bad_alloc();
    return fresh;
  }
  static void Free(void* memory) { std::free(memory); }
};

}  // namespace qnx

#endif  // KORVANDIS_QNX_PPS_MEMORY_H
