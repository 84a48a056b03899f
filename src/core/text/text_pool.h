// Where the containers keep their texts: bump allocation from chunks, all freed at once.
#pragma once

#include <cstddef>
#include <string_view>

namespace zvtaskq {

class TextPool {
 public:
  TextPool() = default;
  TextPool(const TextPool&) = delete;
  TextPool& operator=(const TextPool&) = delete;
  ~TextPool() { freeAll(nullptr); }

  /// `size` bytes that live until `reset` or the pool's end; null when memory is short.
  char* take(std::size_t size) {
    if (size > static_cast<std::size_t>(end_ - next_)) return takeFromNewChunk(size);
    char* room = next_;
    next_ += size;
    return room;
  }
  /// A null-terminated copy of `text`, cut at nothing; null when memory is short.
  char* copy(std::string_view text);
  /// Makes the room of the text taken last, and of nothing older, free again from `text` on.
  void giveBack(char* text) { next_ = text; }
  /// Frees every text and keeps one chunk for what comes next.
  void reset();

 private:
  struct Chunk {
    Chunk* older;
    std::size_t size;  // itself included
  };
  char* takeFromNewChunk(std::size_t size);
  void freeAll(Chunk* but);

  Chunk* newest_ = nullptr;
  char* next_ = nullptr;
  char* end_ = nullptr;
};

}  // namespace zvtaskq
