// The lines that FTP servers write about transfers.
#pragma once

#include <string_view>

namespace zvtaskq {

/// A transfer that took place, either way.
struct Transfer {
  /// Who logged in.
  std::string_view user;
  /// The bytes as the line has them, and as a number.
  std::string_view bytesText;
  unsigned long long bytes = 0;
  /// The address of the other end.
  std::string_view from;
};

/// ProFTPD's line for a command, as share/ftp/proftpd.conf lays it out: the command, the bytes, the address, the
/// second, and the user. Downloads ("RETR") and uploads ("STOR", and those to the end of a file or under a new name)
/// count; the bytes of one that failed are "-".
bool readProftpdLine(std::string_view line, Transfer& out);

/// Takes a line of a transfer log apart. False for one that tells of no transfer.
using TransferReader = bool (*)(std::string_view line, Transfer& out);

/// How the lines of Pure-FTPd's log are read, by its first line: in one of the formats "clf", "w3c", "xferlog". Null
/// for any other first line. In the format "stats" names stand as they are, line feeds and all: whoever may name a file
/// could forge a line of any format there, so nothing in such a log counts.
TransferReader pureftpdReader(std::string_view firstLine);

}  // namespace zvtaskq
