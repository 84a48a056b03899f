#include "support/notice_recorder.h"

#include "notify/ticket.h"

namespace zvtaskq {

namespace test {
namespace {
bool isLosing = false;
}
std::vector<SentNotice>& sentNotices() {
  static std::vector<SentNotice> notices;
  return notices;
}
void loseNotices(bool lost) {
  isLosing = lost;
}
}  // namespace test

/// Stands in the real one's place in the programs that are linked with this.
int Ticket::notifyAdmins(const char* service, const char* subject, const char* message, int isGeneral, int byEmail,
                         int) {
  test::sentNotices().push_back({service, subject, message, isGeneral, byEmail});
  isLost = test::isLosing;
  return isLost ? 0 : 1;
}

}  // namespace zvtaskq
