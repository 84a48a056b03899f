// Telling the recipients of one ticket.
#pragma once

#include "core/record/list_file.h"
#include "core/text/text.h"

namespace zvtaskq {

class MailCopies;

class Delivery {
 public:
  /// `from` is the account that sends. `copies` is what goes to those who want e-mail, null for nothing. All stay the
  /// caller's. Reads "admin.list" once.
  Delivery(int ticket, const char* type, const char* from, const MailCopies* copies);

  /// Lists the ticket as new for the recipient, in the administrators' common list when it is one of "admin.list" or
  /// an account of that type, else in its own; then sends the e-mail copies. The sender itself is told nothing, and
  /// that is a success. 0 with an error-log line and the reason in `result`; a copy that could not be sent is no
  /// failure. May be called under any identity; leaves nobody.
  [[nodiscard]] int deliver(const char* recipient, Text& result);

 private:
  int ticket_;
  const char* type_;
  const char* from_;
  const MailCopies* copies_;
  ListFile administrators_;
  bool administratorsTold_ = false;
};

}  // namespace zvtaskq
