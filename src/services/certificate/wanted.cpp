#include "services/certificate/wanted.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "account/model/account_record.h"
#include "account/model/name_owner.h"
#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/run_state.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/text/names.h"
#include "core/text/split.h"

namespace zvtaskq {

namespace {

/// What authorities take into one certificate.
constexpr std::size_t kMostNames = 100;
constexpr int kOnRequest = 1;

template <class Word>
bool contains(const std::vector<Word>& all, std::string_view one) {
  return std::find(all.begin(), all.end(), one) != all.end();
}

class Names {
 public:
  Names(const char* account, const std::string& domain, const ConfigFile& owners)
      : account_(account), domain_(domain), owners_(owners) {}

  int addChosen(const ConfigFile& wish) {
    add(domain_);
    const char* own = wish.getValue("names");
    const std::vector<std::string_view> offered = wordsIn(sys_conf->letsencrypt_list.view(), ':');
    std::vector<std::string> subdomains;
    bool isRead = false;
    for (const std::string_view word :
         wordsIn(own == nullptr ? sys_conf->letsencrypt_list_selected.orEmpty() : own, ':')) {
      if (!contains(offered, word) && !isRead && !readSubdomains(account_, domain_.c_str(), subdomains)) return 0;
      isRead = isRead || !contains(offered, word);
      if (contains(offered, word) || contains(subdomains, word)) {
        add(joined(word, ".", domain_));
      } else {
        refuse(word, "it is neither offered nor a subdomain");
      }
    }
    return 1;
  }

  int addPointers(const ConfigFile& wish) {
    const int many = sys_conf->letsencrypt_multidomain_cert;
    const bool wants = many == kOnRequest ? wish.isValue("pointers", "yes") != 0
                                          : many > kOnRequest && !wish.isValue("pointers", "no");
    if (!wants) return 1;
    ConfigFile pointers(nullptr);
    if (!readPointers(account_, domain_.c_str(), pointers)) return 0;
    for (long long i = 0; i < pointers.size(); ++i) {
      const std::string name = pointers.getNameAt(i);
      if (pointers.isValue(name.c_str(), "redirect")) continue;
      add(name);
      add("www." + name);
    }
    return 1;
  }

  /// Without the domain itself, which is another's then, there is nothing to ask for.
  std::string text() const { return contains(all_, domain_) ? joinedWith(":", all_) : ""; }

 private:
  void refuse(std::string_view name, const char* why) const {
    errorLog("%s %s: name '%s' of its certificate is refused: %s", account_, domain_.c_str(), printable(name).c_str(),
             why);
  }

  void add(const std::string& name) {
    if (contains(all_, name)) return;
    if (!isValidDomain(name.c_str()) || !mayHaveName(owners_, account_, name)) {
      return refuse(name, "it is no host name, or belongs to another account");
    }
    if (all_.size() >= kMostNames) return refuse(name, "there are too many");
    all_.push_back(name);
  }

  const char* account_;
  const std::string& domain_;
  const ConfigFile& owners_;
  std::vector<std::string> all_;
};

}  // namespace

int readWanted(const char* account, const std::string& domain, const ConfigFile& owners, std::string& names) {
  names.clear();
  PanelRecord wish(domainFile(account, domain.c_str(), kWishEnding));
  if (!pathExists(wish.getFilename())) return 1;
  if (!wish.readFile()) {
    errorLog("%s %s: %s", account, domain.c_str(), wish.result.orEmpty());
    return 0;
  }
  if (wish.isValue("renew", "no")) return 1;
  Names all(account, domain, owners);
  if (!all.addChosen(wish) || !all.addPointers(wish)) return 0;
  names = all.text();
  return 1;
}

}  // namespace zvtaskq
