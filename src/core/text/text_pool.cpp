#include "core/text/text_pool.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/text/large_pages.h"

namespace zvtaskq {

namespace {
constexpr std::size_t kFirstChunk = 2048;
constexpr std::size_t kLargestChunk = std::size_t{4} << 20;
}  // namespace

char* TextPool::copy(std::string_view text) {
  char* room = take(text.size() + 1);
  if (room == nullptr) return nullptr;
  if (!text.empty()) std::memcpy(room, text.data(), text.size());
  room[text.size()] = '\0';
  return room;
}

char* TextPool::takeFromNewChunk(std::size_t size) {
  const std::size_t next = newest_ == nullptr ? kFirstChunk : std::min(newest_->size * 2, kLargestChunk);
  const std::size_t wanted = std::max(next, sizeof(Chunk) + size);
  auto* chunk = static_cast<Chunk*>(roomInLargePages(wanted));
  if (chunk == nullptr) return nullptr;
  chunk->older = newest_;
  chunk->size = wanted;
  newest_ = chunk;
  next_ = reinterpret_cast<char*>(chunk + 1);
  end_ = reinterpret_cast<char*>(chunk) + wanted;
  return take(size);
}

void TextPool::freeAll(Chunk* but) {
  while (newest_ != nullptr) {
    Chunk* older = newest_->older;
    if (newest_ != but) std::free(newest_);
    newest_ = older;
  }
  newest_ = but;
}

void TextPool::reset() {
  if (newest_ == nullptr) return;
  // A chunk as large as a whole file is not worth keeping for the next line.
  Chunk* kept = newest_->size <= kLargestChunk ? newest_ : nullptr;
  freeAll(kept);
  next_ = kept == nullptr ? nullptr : reinterpret_cast<char*>(kept + 1);
  end_ = kept == nullptr ? nullptr : reinterpret_cast<char*>(kept) + kept->size;
  if (kept != nullptr) kept->older = nullptr;
}

}  // namespace zvtaskq
