#include "tally/counts/account_counts.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/text.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

constexpr const char* kMailUser = "mail";
/// Bytes of the largest file that is counted: fifty thousand mailboxes of one domain.
constexpr std::size_t kMostBytes = 8UL << 20;
/// Room that is kept from one file to the next.
constexpr std::size_t kKeptRoom = 1UL << 20;
constexpr std::string_view kBlanks = " \t\r";

/// The next line, the last one also without its line feed: the mail server reads it too.
std::string_view takeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(line.size() + 1, text.size()));
  return line;
}

/// What stands in a line: a name, and what it stands for.
struct Line {
  std::string_view name;
  std::string_view rest;
};

bool isMailbox(const Line& line, std::string_view) {
  return !line.rest.substr(0, line.rest.find(':')).empty();
}

bool isFtpAccount(const Line& line, std::string_view account) {
  return line.name != account && isMailbox(line, account);
}

bool isForwarder(const Line& line, std::string_view account) {
  return line.name != "*" && line.name != account && !line.rest.empty();
}

bool isAnything(const Line&, std::string_view) {
  return true;
}

/// The first `size` bytes of a file, fewer when it has become shorter. False with errno.
bool readUpTo(int file, std::size_t size, std::string& content) {
  content.resize(size);
  std::size_t had = 0;
  ssize_t got = 1;
  for (; had < size && got > 0; had += static_cast<std::size_t>(std::max<ssize_t>(got, 0))) {
    got = sys::read(file, content.data() + had, size - had);
  }
  content.resize(had);
  return got >= 0;
}

void forget(std::string& content, std::vector<std::uint64_t>& names) {
  if (content.capacity() > kKeptRoom) std::string().swap(content);
  if (names.capacity() * sizeof names[0] > kKeptRoom) std::vector<std::uint64_t>().swap(names);
}

}  // namespace

/// A kind of file, and which of its lines count.
struct Counts::Kind {
  const char* file;
  /// Ends the name; 0 when the whole line is one.
  char separator;
  long long AccountCounts::*total;
  bool (*counts)(const Line& line, std::string_view account);
};

const Counts::Kind Counts::kMail[] = {
    {"passwd", ':', &AccountCounts::nemails, isMailbox},
    {"aliases", ':', &AccountCounts::nemailf, isForwarder},
    {"lists.list", 0, &AccountCounts::nemailml, isAnything},
    {"autoresponder.conf", ':', &AccountCounts::nemailr, isAnything},
};
const Counts::Kind Counts::kPanels[] = {
    {"pointers", '=', &AccountCounts::domainptr, isAnything},
    {"ftppasswd", ':', &AccountCounts::ftp, isFtpAccount},
};

Counts::Counts(const Config& conf)
    : mailFolder_(conf.emailvirtual.orEmpty()),
      mailUser_(idsOf(kMailUser)),
      panelUser_(idsOf(kPanelUser)),
      ftp_(conf.ftppasswd) {
  const AsRoot root;
  // The top is the administrator's to name, and may be a link.
  if (!mailFolder_.empty()) mail_ = Descriptor(sys::open(mailFolder_.c_str(), O_PATH | O_DIRECTORY));
}

AccountCounts Counts::of(const char* account, const std::vector<std::string>& domains) {
  AccountCounts counts;
  counts.ftp = ftp_.of(account, domains);
  counts.isWhole = ftp_.isWhole();
  if (mail_) {
    const AsUser mail(mailUser_);
    for (const std::string& domain : domains) countMail(account, domain, counts);
  }
  const AsUser panel(panelUser_);
  for (const std::string& domain : domains) countPanels(account, domain, counts);
  return counts;
}

void Counts::countMail(const char* account, const std::string& domain, AccountCounts& counts) {
  const auto tell = [&](const char* file) {
    counts.isWhole = false;
    errorLog("%s/%s%s of account %s is not counted: %s", mailFolder_.c_str(), domain.c_str(), file, account,
             std::strerror(errno));
  };
  const Descriptor folder = openBeneath(mail_.get(), domain.c_str(), O_PATH | O_DIRECTORY);
  if (!folder) {
    if (errno != ENOENT) tell("");
    return;
  }
  for (const Kind& kind : kMail) {
    const Descriptor file(sys::openat(folder.get(), kind.file, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    if (!count(file, kind, account, counts.*kind.total)) tell(joined("/", kind.file).c_str());
  }
}

void Counts::countPanels(const char* account, const std::string& domain, AccountCounts& counts) {
  for (const Kind& kind : kPanels) {
    const std::string path = domainFile(account, domain.c_str(), kind.file);
    const Descriptor file = openPanelFile(path.c_str());
    if (count(file, kind, account, counts.*kind.total)) continue;
    counts.isWhole = false;
    errorLog("%s of account %s is not counted: %s", path.c_str(), account, std::strerror(errno));
  }
}

/// Adds what counts in the file to the total. False with errno when it cannot be read as a whole.
bool Counts::count(const Descriptor& file, const Kind& kind, const char* account, long long& total) {
  if (!file) return errno == ENOENT;
  struct stat what {};
  if (sys::fstat(file.get(), what) != 0) return false;
  if (!S_ISREG(what.st_mode)) {
    errno = S_ISDIR(what.st_mode) ? EISDIR : EINVAL;
    return false;
  }
  if (what.st_size > static_cast<off_t>(kMostBytes)) {
    errno = EFBIG;
    return false;
  }
  if (what.st_size == 0) return true;
  if (!readUpTo(file.get(), static_cast<std::size_t>(what.st_size), content_)) return false;
  total += countNames(kind, account);
  forget(content_, names_);
  return true;
}

long long Counts::countNames(const Kind& kind, std::string_view account) {
  names_.clear();
  for (std::string_view text = content_; !text.empty();) {
    const std::string_view line = takeLine(text);
    // A comment, or an alias's targets going on in the next line.
    if (line.empty() || line.front() == '#' || kBlanks.find(line.front()) != std::string_view::npos) continue;
    const std::size_t end = kind.separator == 0 ? std::string_view::npos : line.find(kind.separator);
    Line parts{trimmed(line.substr(0, end)), {}};
    if (end != std::string_view::npos) parts.rest = trimmed(line.substr(end + 1));
    if (!parts.name.empty() && kind.counts(parts, account)) names_.push_back(hash_(parts.name));
  }
  std::sort(names_.begin(), names_.end());
  return std::unique(names_.begin(), names_.end()) - names_.begin();
}

}  // namespace zvtaskq
