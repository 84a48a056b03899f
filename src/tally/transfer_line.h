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

/// Pure-FTPd's line for a transfer in one of the formats that no file name can forge a line of: "clf", "w3c",
/// "xferlog".
/// ("stats" writes names as they are, line feeds and all, and is refused.)
bool readPureftpdLine(std::string_view line, Transfer& out);

}  // namespace zvtaskq
