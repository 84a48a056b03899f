// tally_file_work FILE: sums a tally file, e-mails counted once, as the tally does.
#include <cstdio>

#include "tally/traffic/tally_file.h"

int main(int count, char** arguments) {
  if (count != 2) return 2;
  const double total = zvtaskq::getTallyTotal(arguments[1]);
  std::printf("%.0f\n", total);
  return total > 0 ? 0 : 1;
}
