#include "services/ftp/pure_database.h"

#include <cerrno>
#include <cstring>
#include <set>

#include "account/model/ftp_sessions.h"
#include "core/config/config.h"
#include "core/files/line_edit.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/process/system_tool.h"
#include "core/record/panel_file.h"
#include "core/sys/privileges.h"
#include "core/tree/remove_tree.h"
#include "services/ftp/password_files.h"
#include "services/rewrite/ask_server.h"
#include "services/rewrite/rewrite.h"

namespace zvtaskq {

namespace {

constexpr const char* kName = "pureftp_db";
constexpr mode_t kMode = 0600;
constexpr std::size_t kLongestDatabase = 256UL << 20;
constexpr std::size_t kLongestWords = 64UL << 10;
/// What every such database begins with.
constexpr std::string_view kMagic = "PDB2";

/// A folder of the panel's for the program to work in. What a killed run left in it goes before and after.
class Workshop {
 public:
  Workshop() : folder_(stateFile(kName)) { clear(); }
  ~Workshop() { clear(); }
  Workshop(const Workshop&) = delete;
  Workshop& operator=(const Workshop&) = delete;

  int open(Text& result) const {
    if (openStateFolder(kName)) return 1;
    const std::string why = std::strerror(errno);
    return fail(result, "Unable to make ", folder_, ": ", why);
  }
  std::string file(const char* name) const { return joined(folder_, "/", name); }

 private:
  void clear() const {
    const AsUser panel(kPanelUser);
    static_cast<void>(removeTree(folder_));
  }

  std::string folder_;
};

/// Who may come in, as the program reads it, and whose users may not any more.
struct LogIns {
  std::string text;
  std::set<uid_t> open;
  std::set<uid_t> locked;

  void add(const FtpEntry& entry) {
    const bool isOpen = entry.fate == FtpFate::good;
    (isOpen ? open : locked).insert(entry.ids.user);
    if (isOpen) text.append(entry.line()) += '\n';
  }
  /// Those with nothing but locked log-ins.
  std::set<uid_t> shutOut() const {
    std::set<uid_t> users = locked;
    std::erase_if(users, [&](uid_t user) { return open.contains(user); });
    return users;
  }
};

int runPurePw(const Workshop& workshop, Ids panelUser, Text& result) {
  const char* program = sys_conf->pure_pw;
  if (!toolExists(program)) return fail(result, program, " is not installed");
  ChildPlan plan = ChildPlan::program(program, {"mkdb", workshop.file("database"), "-f", workshop.file("passwords")});
  plan.identity = panelUser;
  plan.outputLimit = kLongestWords;
  std::string words;
  const AsRoot root;
  return askServer(std::move(plan), program, words) == Verdict::good ? 1
                                                                     : fail(result, program, ": ", printable(words));
}

int makeDatabase(const std::string& text, std::string& database, Text& result) {
  const Workshop workshop;
  const Ids panelUser = idsOf(kPanelUser);
  if (!workshop.open(result) || !writeWhole(workshop.file("passwords"), panelUser, text, kMode, result) ||
      !runPurePw(workshop, panelUser, result)) {
    return 0;
  }
  const AsUser panel(kPanelUser);
  const Descriptor made = openPanelFile(workshop.file("database").c_str());
  if (made && sys::readAll(made.get(), database, kLongestDatabase) && database.starts_with(kMagic)) return 1;
  return fail(result, sys_conf->pure_pw, " made no database");
}

}  // namespace

int rewritePureDatabase(Text& result) {
  Rewrite rewrite({.name = kName, .words = "FTP password database"});
  // Whoever waits for another process reads the files after it.
  if (!rewrite.begin()) return fail(result, rewrite.result);
  FtpHolders holders;
  if (!holders.read(result)) return 0;
  LogIns logIns;
  std::string database;
  const auto add = [&](const FtpEntry& entry) { logIns.add(entry); };
  if (!eachFtpLogIn(holders, add, result) || !makeDatabase(logIns.text, database, result)) return 0;
  rewrite.offer({{}, std::string(sys_conf->ftppasswd_db.view()), std::move(database), kRootIds, kMode});
  if (!rewrite.finish()) return fail(result, rewrite.result);
  if (rewrite.counts().leftOut > 0) return fail(result, "Unable to write ", sys_conf->ftppasswd_db);
  // The one before let them in until now, whatever was ended when they were suspended.
  endFtpSessions(logIns.shutOut());
  return 1;
}

}  // namespace zvtaskq
