// One line of an FTP password file, and whether a server may be given it.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/record/config_file.h"
#include "core/sys/identity.h"

namespace zvtaskq {

/// An account of the panel that FTP accounts may work as.
struct FtpHolder {
  std::string account;
  std::string home;
  Ids ids{};
};

/// The accounts of this panel, and whose the domains are: read once, for many lines.
class FtpHolders {
 public:
  /// 0 with why in `result` when the accounts cannot be listed. Leaves nobody's identity.
  [[nodiscard]] int read(Text& result);
  void add(FtpHolder holder);

  const std::vector<FtpHolder>& all() const { return holders_; }
  const FtpHolder* byName(std::string_view account) const;
  const FtpHolder* byUser(uid_t user) const;
  /// The account that has the domain, by the table of owners; empty for nobody.
  std::string ownerOf(const std::string& domain) const { return owners_.getOrEmpty(domain.c_str()); }
  void own(const char* domain, const char* account) { owners_.setParam(domain, account); }

 private:
  std::vector<FtpHolder> holders_;
  std::map<std::string, std::size_t, std::less<>> byName_;
  std::map<uid_t, std::size_t> byUser_;
  ConfigFile owners_{nullptr};
};

/// What became of a line.
enum class FtpFate {
  /// A comment, or nothing.
  none,
  good,
  /// Its password is suspended or locked: nobody gets in.
  locked,
  refused,
};

struct FtpEntry {
  FtpFate fate = FtpFate::none;
  /// Whose it is, as far as can be told; empty when nobody's.
  std::string account;
  /// The whole name.
  std::string name;
  std::string_view hash;
  Ids ids{};
  std::string home;
  /// Why it is refused, and for which field.
  const char* field = "";
  std::string why;

  /// The line as both servers read it, without its line feed; the comment and what ProFTPD has for the shell are empty.
  std::string line() const;
};

/// Where a line stands: in a file of a domain's, or with both empty in that of all.
struct FtpPlace {
  std::string account;
  std::string domain;
};

/// Takes a line of a password file apart and judges it. Its user and group have to be those of one of the accounts
/// (that one, in a file of its own), its home his or a folder below, to which no link leads at this moment; its name
/// has to be his or of one of his domains. What is not there yet is no fault of a home. `entry.hash` is a part of
/// `line`. Works as root, and gives back the identity it finds.
FtpEntry judgeFtpLine(std::string_view line, const FtpPlace& place, const FtpHolders& holders);

/// Says of a refused line who and which field it is about, and why, in the error log.
void tellRefused(const FtpEntry& entry);

}  // namespace zvtaskq
