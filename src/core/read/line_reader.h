// Lines of any length, from files and from texts.
//
// A line ends with LF; a CR right before it is dropped; a NUL ends the line it stands in. A last line without LF is
// not read: it may be one that somebody is still writing.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string_view>

namespace zvtaskq {

/// No line of a file that is read as a whole may be longer: a hole in a file costs nothing, and must not cost memory.
inline constexpr long long kLongestFileLine = 128LL << 20;

/// What becomes of a line that fills a block.
enum class LongLines {
  /// It is held as a whole, but for what follows its first NUL.
  keep,
  /// Its beginning alone is handed out, with an error-log line: for logs, of which a line is one entry among many.
  chop,
};

/// Reads a file in large blocks and hands out its lines. Holds one line at most.
class LineReader {
 public:
  /// Reads from where the descriptor stands. The descriptor stays the caller's. A line of more than `longest` bytes is
  /// a read error, EFBIG.
  explicit LineReader(int fd, long long longest = kLongestFileLine);
  /// The same for lines of any length, of which long ones are chopped.
  LineReader(int fd, LongLines longLines);
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  /// The next line, valid until the next call. False at the end of the file, on a read error (errno set, see
  /// `failed`) and when only an unfinished line is left.
  bool next(std::string_view& line);
  /// All whole lines that are at hand, as they stand in the file, with their line feeds; valid until the next call.
  /// For whoever reads millions of short lines. A very long line is handed out in what is held of it. False as `next`.
  bool nextBlock(std::string_view& lines);
  /// A file of that many bytes, unless 0, is read to there without asking whether it has grown since.
  void expect(long long size) { expected_ = size; }
  /// Discards bytes up to and including the next LF, CR or byte 0xFF.
  void skipToBoundary();
  /// Bytes of whole lines handed out or discarded so far.
  long long consumed() const { return consumed_; }
  /// Bytes of an unfinished last line, once `next` has answered false.
  long long unfinished() const { return static_cast<long long>(end_ - start_) + dropped_; }
  bool failed() const { return failed_; }
  /// Whether a CR has been read by `next`, wherever it stood.
  bool holdsCr() const { return holdsCr_; }

 private:
  bool fill();
  void lookAtNews();
  bool makeRoom();
  bool chop();
  bool grow();

  int fd_;
  long long longest_;
  /// Bytes of the file that are still to be read: 0 when its size is not known, below when it is read to its end.
  long long expected_ = 0;
  LongLines longLines_ = LongLines::keep;
  std::unique_ptr<char[]> buffer_;
  std::size_t size_;
  std::size_t start_ = 0;
  std::size_t scanned_ = 0;
  /// Up to here the bytes have been looked at for NUL and CR.
  std::size_t looked_ = 0;
  std::size_t end_ = 0;
  long long consumed_ = 0;
  /// Bytes of the line at `start_` that are not kept.
  long long dropped_ = 0;
  /// A NUL has been read: lines have to be searched for one.
  bool holdsNul_ = false;
  bool holdsCr_ = false;
  bool failed_ = false;
};

/// Cuts the next line off the front of `text`. False when no line feed is left.
bool nextLine(std::string_view& text, std::string_view& line);

/// The size that a line buffer starts with.
inline constexpr std::size_t kFirstLineBuffer = 512;

/// Reads one line (without its line feed) into the owned `buffer` of `size` bytes (null and 0: made here), which
/// doubles whenever fewer than 32 bytes are left. With `maxLength` above 0, a line found longer than that when the
/// buffer must grow is returned as read so far (error log and debug, level 100: "Line length (%d) is greater than max
/// line length (%d). Chopping value."), and its rest is the next line. 1 when a line was read, 0 at the end.
[[nodiscard]] int readLine(std::FILE* file, char*& buffer, std::size_t& size, int maxLength);
/// The same over a text in memory, which moves behind the line.
[[nodiscard]] int readLine(const char*& text, char*& buffer, std::size_t& size);

}  // namespace zvtaskq
