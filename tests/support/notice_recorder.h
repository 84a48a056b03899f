// Notices to the administrators, recorded instead of sent: in the test programs of rooms that tell of what they found.
#pragma once

#include <string>
#include <vector>

namespace zvtaskq::test {

struct SentNotice {
  std::string service, subject, message;
  int isGeneral;
  int byEmail;
};

/// All since the program began, or since a test emptied it.
std::vector<SentNotice>& sentNotices();
/// Whether those to come reach nobody.
void loseNotices(bool lost);

}  // namespace zvtaskq::test
