// disk_walk_work FOLDER: measures a folder, as the tally does a mail store.
#include <cstdio>

#include "core/tree/tree_size.h"

int main(int count, char** arguments) {
  if (count != 2) return 2;
  const zvtaskq::TreeSize size = zvtaskq::measureTree(arguments[1]);
  std::printf("%lld %lld\n", size.bytes, size.inodes);
  return size.incomplete || size.inodes == 0 ? 1 : 0;
}
