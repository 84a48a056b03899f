#include "runner/upkeep/program_update.h"

#include <cerrno>
#include <cstring>

#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/process/execute.h"
#include "core/process/system_tool.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/random.h"
#include "core/sys/safe_point.h"
#include "core/tree/remove_tree.h"
#include "notify/ticket.h"
#include "runner/monitor/service_watch.h"
#include "runner/upkeep/panel_package.h"

namespace zvtaskq {

namespace {

constexpr const char* kPackage = "package.deb";
constexpr const char* kSignature = "package.sig";
constexpr const char* kKey = "key.gpg";
constexpr const char* kBefore = "installed.deb";
constexpr const char* kTrial = "trial";
constexpr const char* kProgram = "/zvtaskq";
constexpr int kRemoteWait = 30;
constexpr int kLocalWait = 2;
constexpr int kSecond = 1000;
constexpr int kInstallTime = 900;
constexpr int kAnswerTime = 20;
constexpr std::size_t kMostWords = 500;
const std::string kTop(1, '/');

enum class Outcome { updated, failed, nothing };

class ProgramUpdate {
 public:
  Outcome run() {
    const std::string source(sys_conf->update_package.view());
    wait(source);
    if (source.empty()) return Outcome::nothing;
    if (!folder_.take(why_) || !fetch(source)) return Outcome::failed;
    if (!isNewerPackage(fields_)) return Outcome::nothing;
    if (!tryOut()) return Outcome::failed;
    before_ = presentVersion();
    if (install(kPackage, why_) && answers(why_)) return keep();
    putBack();
    return Outcome::failed;
  }

  const std::string& why() const { return why_; }

 private:
  /// Many servers that update at the same minute of the day must not ask at the same second.
  static void wait(const std::string& source) {
    const int seconds = getRandNumber(1, isRemote(source) ? kRemoteWait : kLocalWait);
    systemLog("Waiting a random number of seconds (%d) before updating to avoid ddos.", seconds);
    for (int i = 0; i < seconds; ++i) {
      nap(kSecond);
      atSafePoint();
    }
  }

  int refuse(const std::string& why) {
    why_ = why;
    return 0;
  }

  /// Package, signature and key in the folder, and judged.
  int fetch(const std::string& source) {
    std::string package;
    std::string signature;
    bool isMissing = false;
    if (!fetchPart(source, package, isMissing, why_)) return 0;
    if (!fetchPart(source + ".sig", signature, isMissing, why_)) {
      if (!isMissing || !fetchPart(source + ".asc", signature, isMissing, why_)) return 0;
    }
    if (!folder_.put(kPackage, package, why_) || !folder_.put(kSignature, signature, why_) || !putKey()) return 0;
    const std::string unsigned_ = whyNotSigned(folder_, kPackage, kSignature, kKey);
    if (!unsigned_.empty()) {
      // Everybody may read what stands there.
      const AsRoot root;
      static_cast<void>(unlinkFile(folder_.path(kPackage).c_str()));
      return refuse(joined(shownSource(source), ": ", unsigned_));
    }
    return readPackage(folder_.path(kPackage), fields_, why_) ? 1 : refuse(joined(shownSource(source), ": ", why_));
  }

  int putKey() {
    const std::string path(sys_conf->update_key.view());
    if (path.empty()) return refuse("update_key is not set");
    std::string content;
    return readKey(path, content, why_) && folder_.put(kKey, plainKey(content), why_) ? 1 : 0;
  }

  /// The version that a program gives, asked as nobody.
  static std::string versionOf(const std::string& program) {
    ChildPlan plan = ChildPlan::program(program, {"--version"});
    plan.identity = nobodyIds();
    plan.workingDirectory = kTop;
    plan.errors = ChildPlan::Stream::discard;
    plan.outputLimit = kMostWords;
    plan.timeLimit = kAnswerTime;
    const AsRoot root;
    const ChildResult child = runChild(plan);
    const std::string_view text = std::string_view(child.output).substr(0, child.output.find('\n'));
    return child.status == 0 && !child.timedOut ? std::string(trimmed(text)) : "";
  }

  int isRight(const std::string& program, std::string& why) const {
    const std::string wanted = programVersionOf(fields_.version);
    const std::string answer = versionOf(program);
    if (answer == wanted) return 1;
    why = joined(program, answer.empty() ? " does not answer" : " is another version: ", printable(answer));
    return 0;
  }

  /// Before anything is replaced: the program out of the package, in a folder of nobody's.
  int tryOut() {
    const AsRoot root;
    const std::string trial = folder_.path(kTrial);
    removeTree(trial);
    const Ids nobody = nobodyIds();
    if (sys::mkdir(trial.c_str(), 0700) != 0) return refuse(joined(trial, ": ", std::strerror(errno)));
    const Descriptor folder(sys::open(trial.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder || sys::fchown(folder.get(), nobody.user, nobody.group) != 0) return refuse(std::strerror(errno));
    ChildPlan plan = ChildPlan::program("/usr/bin/dpkg-deb", {"--extract", folder_.path(kPackage), trial});
    plan.identity = nobody;
    plan.workingDirectory = kTop;
    plan.errors = ChildPlan::Stream::discard;
    plan.timeLimit = kInstallTime;
    const ChildResult child = runChild(plan);
    const bool isFine = child.status == 0 && isRight(joined(trial, sys_conf->serverpath, kProgram), why_);
    if (child.status != 0) why_ = "the package cannot be unpacked";
    removeTree(trial);
    return isFine ? 1 : 0;
  }

  int install(const char* file, std::string& why) const {
    const std::string path = folder_.path(file);
    std::vector<std::string> arguments = {"DEBIAN_FRONTEND=noninteractive"};
    if (toolExists("/usr/bin/apt-get")) {
      for (const char* word :
           {"/usr/bin/apt-get", "-q", "-y", "-o", "DPkg::Lock::Timeout=120", "-o", "Dpkg::Options::=--force-confold",
            "--no-install-recommends", "--allow-downgrades", "--reinstall", "install"}) {
        arguments.emplace_back(word);
      }
    } else {
      for (const char* word : {"/usr/bin/dpkg", "--force-confold", "--install"}) arguments.emplace_back(word);
    }
    arguments.push_back(path);
    ChildPlan plan = ChildPlan::program("/usr/bin/env", std::move(arguments));
    plan.identity = kRootIds;
    plan.workingDirectory = kTop;
    plan.errors = ChildPlan::Stream::collect;
    plan.timeLimit = kInstallTime;
    // Half an installation would be worse than a long one.
    plan.atLimit = ChildPlan::AtLimit::leave;
    const AsRoot root;
    const ChildResult child = runChild(plan);
    if (child.status == 0 && !child.timedOut) return 1;
    const std::string_view words = trimmed(child.output);
    const std::size_t last = words.size() - std::min(words.size(), kMostWords);
    why = joined("the package manager ends with status ", std::to_string(child.status), ": ",
                 printable(words.substr(last)));
    return 0;
  }

  int answers(std::string& why) const { return isRight(joined(sys_conf->serverpath, kProgram), why); }

  Outcome keep() {
    const AsRoot root;
    if (sys::rename(folder_.path(kPackage).c_str(), folder_.path(kBefore).c_str()) != 0) {
      errorLog("%s cannot be kept: %s", folder_.path(kPackage).c_str(), std::strerror(errno));
    }
    return Outcome::updated;
  }

  /// Only when something was changed, and by what was there before.
  void putBack() {
    std::string why;
    const AsRoot root;
    if (!before_.empty() && presentVersion() == before_) {
      why_.append("; nothing was changed");
      return;
    }
    if (!pathExists(folder_.path(kBefore).c_str(), PathKind::file)) {
      why_.append("; there is no package of before to be put back");
    } else if (readPackage(folder_.path(kBefore), fields_, why) && fields_.version != before_ && !before_.empty()) {
      why_.append(joined("; the package of version ", before_, ", which was there before, is not kept"));
    } else if (why.empty() && install(kBefore, why) && answers(why)) {
      why_.append(joined("; the package of before was put back, version ", fields_.version));
    } else {
      why_.append("; the package of before cannot be put back: ").append(why);
    }
  }

  UpdateFolder folder_;
  PackageFields fields_;
  std::string why_;
  /// The version that the package manager had before.
  std::string before_;
};

void tellFailure(const std::string& why) {
  constexpr int kGeneral = 1;
  errorLog("Unable to Update the software!: %s", why.c_str());
  Ticket ticket;
  static_cast<void>(ticket.notifyAdmins("", "Unable to Update the software!", why.c_str(), kGeneral));
}

}  // namespace

int updateProgram() {
  if (isDemo()) return 1;
  ProgramUpdate update;
  const Outcome outcome = update.run();
  if (outcome == Outcome::updated) systemLog("Update of software successfull!");
  if (outcome == Outcome::failed) tellFailure(update.why());
  if (outcome == Outcome::nothing) {
    systemLog("Request to update denied: software is up to date at version %s", sys_conf->version);
  }
  doservice("zorvane", "restart");
  return outcome == Outcome::updated ? 1 : 0;
}

}  // namespace zvtaskq
