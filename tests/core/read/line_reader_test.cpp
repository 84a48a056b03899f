#include "core/read/line_reader.h"

#include <sys/mman.h>

#include "support/fixtures.h"

namespace {
/// A file in memory: `before`, a hole, `after`.
Descriptor withHole(const std::string& before, long long hole, const std::string& after) {
  Descriptor file(::memfd_create("lines", MFD_CLOEXEC));
  EXPECT_EQ(sys::writeAll(file.get(), before), before.size());
  ::lseek(file.get(), hole, SEEK_CUR);
  EXPECT_EQ(sys::writeAll(file.get(), after), after.size());
  ::lseek(file.get(), 0, SEEK_SET);
  return file;
}
}  // namespace

TEST(LineReader, ReadsOverAHoleInFlatMemory) {
  constexpr long long kHole = 100LL << 20;
  const long before = peakMemory();
  const Descriptor file = withHole("first\nsec", kHole, "ond\nthird\nun");
  LineReader reader(file.get());
  std::string_view line;
  for (const char* want : {"first", "sec", "third"}) ASSERT_TRUE(reader.next(line) && line == want) << line;
  EXPECT_FALSE(reader.next(line) || reader.failed());
  EXPECT_EQ(reader.consumed(), kHole + 19);
  EXPECT_EQ(reader.unfinished(), 2);

  ASSERT_EQ(::lseek(file.get(), 0, SEEK_SET), 0);
  LineReader blocks(file.get());
  while (blocks.nextBlock(line)) {
  }
  EXPECT_EQ(blocks.consumed(), kHole + 19);
  EXPECT_LT(peakMemory() - before, 16);
}

TEST(LineReader, RefusesALineThatIsTooLong) {
  const std::string longest(1 << 20, 'x');
  for (const auto& [name, text, hole, fits] :
       Rows<const char*, std::string, long long, bool>{{"just fits", longest.substr(1), 0, true},
                                                       {"too long", longest + longest, 0, false},
                                                       {"a hole", "x", 10LL << 30, false}}) {
    const Descriptor file = withHole("first\n" + text, hole, "\nlast\n");
    LineReader reader(file.get(), std::ssize(longest));
    std::string_view line;
    ASSERT_TRUE(reader.next(line));
    errno = 0;
    EXPECT_EQ(reader.next(line), fits) << name;
    EXPECT_EQ(reader.failed(), !fits) << name;
    EXPECT_EQ(errno, fits ? 0 : EFBIG) << name;
    EXPECT_EQ(reader.consumed(), 6 + (fits ? std::ssize(text) + 1 : 0)) << name;
  }
}
