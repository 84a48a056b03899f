// The bytes around a file's content that make it a member of a ".tar.gz" file.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <string_view>

namespace zvtaskq {

/// The header block (512 bytes) of a plain file in a tar archive; its size in bytes and its time are those of `what`.
/// Empty when the name, or its part before the last "/" and that behind it, is longer than the format takes (155 and
/// 100 bytes).
std::string tarHeader(const std::string& name, const struct stat& what);
/// The zeros that follow a content of that many bytes, up to a whole block.
std::string tarPadding(long long size);
/// At most 65535 bytes as a complete gzip file, uncompressed. One gzip file behind another unpacks to both contents.
std::string gzipStored(std::string_view text);

/// A gzip file of this many bytes, without content, that carries a number in its header: programs that unpack pass it
/// by. The number alone may be written anew, at its place.
inline constexpr std::size_t kGzipMarkSize = 45, kGzipMarkPlace = 16;
std::string gzipMark(long long number);
/// What stands at that place: the number, and its complement to tell it from half a number.
std::string gzipMarkNumber(long long number);
/// The number of the mark that a file begins with. Nothing for any other beginning, and for half a number.
std::optional<long long> readGzipMark(std::string_view beginning);

}  // namespace zvtaskq
