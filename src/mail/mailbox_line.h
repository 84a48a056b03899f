// A line of a mail domain's password file: "mailbox:hash:uid:gid::home::userdb_quota_rule=*:bytes=N".
#pragma once

#include <string>
#include <string_view>

#include "core/sys/identity.h"

namespace zvtaskq {

struct MailboxLine {
  /// Takes a line apart, whose text has to outlive this. What is none has a name all the same, as far as it can be
  /// told.
  explicit MailboxLine(std::string_view line);

  /// Whether it is a mailbox: with a name that can be a folder's (`isMailName`, and no blank, which tables are divided
  /// by), a hash, and no control character.
  bool isOne() const { return isOne_; }
  /// The line as it should stand.
  std::string text() const;

  std::string_view name, hash;
  Ids ids{};
  std::string home;
  /// Bytes; 0 for no limit, and for what cannot be understood.
  long long quota = 0;
  /// Nothing but blanks, or a comment.
  bool isEmpty = false;

 private:
  bool isOne_ = false;
};

}  // namespace zvtaskq
