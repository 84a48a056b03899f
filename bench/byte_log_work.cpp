// byte_log_work FILE: sums a web byte log, as the tally does.
#include <cstdio>

#include "tally/traffic/web_traffic.h"

int main(int count, char** arguments) {
  if (count != 2) return 2;
  double upload = 0;
  const double total = zvtaskq::getHttpTotal(arguments[1], upload);
  std::printf("%.0f %.0f\n", total, upload);
  return total > 0 ? 0 : 1;
}
