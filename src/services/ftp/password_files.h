// The files that FTP accounts stand in, read line by line.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/sys/identity.h"
#include "core/text/text.h"
#include "services/ftp/ftp_entry.h"

namespace zvtaskq {

/// A password file that is there.
struct FtpFile {
  std::string path;
  /// Who owns the folder it stands in.
  Ids owner{};
  FtpPlace place;
};

/// The file of all, as `ftppasswd` names it. 0 with why in `result` when nothing does.
[[nodiscard]] int mainFtpFile(FtpFile& file, Text& result);
/// Those of an account's domains, as far as they are there. 0 with why in `result` when its list of domains cannot be
/// read.
[[nodiscard]] int domainFtpFiles(const std::string& account, std::vector<FtpFile>& files, Text& result);

/// Judges each line of a file, and lets `take` have what became of it, with the line. 0 with why in `result` when the
/// file cannot be read.
[[nodiscard]] int eachFtpEntry(const FtpFile& file, const FtpHolders& holders,
                               const std::function<void(const FtpEntry&, std::string_view)>& take, Text& result);

/// Lets `take` have every FTP account of all files that is good or locked, none twice. What is refused gets its
/// error-log line once a day; an account whose files of domains cannot be read has its others left out with one too. 0
/// with why in `result` when the file of all is not there or cannot be read.
[[nodiscard]] int eachFtpLogIn(const FtpHolders& holders, const std::function<void(const FtpEntry&)>& take,
                               Text& result);

/// Says the same of the lines that are refused, for a server that reads them itself. A file that is not there has none.
[[nodiscard]] int tellRefusedLines(Text& result);

}  // namespace zvtaskq
