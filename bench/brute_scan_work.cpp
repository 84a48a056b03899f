// brute_scan_work make FILE KIND LINES PERCENT ADDRESSES USERS: writes a log of KIND ("secure" or "mail") in which that
// share of the lines are failed log-ins, from as many addresses and with as many names.
// brute_scan_work scan FOLDER LOG KIND [all]: one pass of the brute-force monitor over the log, with its files in
// FOLDER; with "all" it counts what was tried on suspended accounts too.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "tally/bruteforce/watch/check.h"

using namespace zvtaskq;

namespace {

/// The same numbers on every machine.
class Numbers {
 public:
  unsigned below(unsigned limit) {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<unsigned>(state_ >> 33) % limit;
  }

 private:
  std::uint64_t state_ = 1;
};

constexpr const char* kUsers[] = {"root", "admin", "test", "oracle", "postgres", "ubuntu", "git", "bob"};

/// One of so many names as attackers try: those above, then the same with numbers.
std::string userName(unsigned which) {
  const std::string name = kUsers[which % 8];
  return which < 8 ? name : name + std::to_string(which / 8);
}

/// What a line tells of.
struct LogIn {
  const char* stamp;
  const char* address;
  const char* user;
  bool failed;
};

void writeSecureLine(std::FILE* out, Numbers& numbers, const LogIn& logIn) {
  const unsigned id = 1000 + numbers.below(60000), port = 1024 + numbers.below(60000);
  const auto& [stamp, at, user, failed] = logIn;
  if (failed && numbers.below(2) == 0) {
    std::fprintf(out, "%s server sshd[%u]: Failed password for invalid user %s from %s port %u ssh2\n", stamp, id, user,
                 at, port);
  } else if (failed) {
    std::fprintf(out, "%s server sshd[%u]: Failed password for %s from %s port %u ssh2\n", stamp, id, user, at, port);
  } else if (numbers.below(3) == 0) {
    std::fprintf(out,
                 "%s server sshd[%u]: Accepted publickey for %s from %s port %u ssh2: ED25519 SHA256:0a1b2c3d4e5f\n",
                 stamp, id, user, at, port);
  } else if (numbers.below(2) == 0) {
    std::fprintf(out,
                 "%s server sshd[%u]: pam_unix(sshd:session): session opened for user %s(uid=%u) by (uid=0), port %u\n",
                 stamp, id, user, id, port);
  } else {
    std::fprintf(out,
                 "%s server CRON[%u]: pam_unix(cron:session): session closed for user %s after the job %u had run\n",
                 stamp, id, user, port);
  }
}

void writeMailLine(std::FILE* out, Numbers& numbers, const LogIn& logIn) {
  const auto& [stamp, address, user, failed] = logIn;
  const unsigned session = numbers.below(1U << 30);
  if (failed) {
    std::fprintf(out,
                 "%s server dovecot: imap-login: Disconnected (auth failed, %u attempts): user=<%s@site.example>, "
                 "method=PLAIN, rip=%s, lip=198.51.100.1, TLS, session=<%08x>\n",
                 stamp, 1 + numbers.below(3), user, address, session);
  } else {
    std::fprintf(out,
                 "%s server dovecot: imap-login: Login: user=<%s@site.example>, method=PLAIN, rip=%s, "
                 "lip=198.51.100.1, mpid=%u, TLS, session=<%08x>\n",
                 stamp, user, address, numbers.below(60000), session);
  }
}

int make(char** arguments) {
  std::FILE* out = std::fopen(arguments[2], "we");
  if (out == nullptr) return 1;
  const bool mail = std::string(arguments[3]) == "mail";
  const long lines = std::atol(arguments[4]);
  const auto percent = static_cast<unsigned>(std::atoi(arguments[5]));
  const auto addresses = static_cast<unsigned>(std::atoi(arguments[6]));
  const auto users = static_cast<unsigned>(std::atoi(arguments[7]));
  Numbers numbers;
  for (long i = 0; i < lines; ++i) {
    const long second = i / 50;
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "Nov %2ld %02ld:%02ld:%02ld", 1 + second / 86400 % 28, second / 3600 % 24,
                  second / 60 % 60, second % 60);
    const unsigned address = numbers.below(addresses) * 2654435761U % (1U << 24);
    const std::string text = "10." + std::to_string(address >> 16) + "." + std::to_string(address >> 8 & 255) + "." +
                             std::to_string(address & 255);
    const bool failed = numbers.below(100) < percent;
    const std::string user = userName(numbers.below(users));
    (mail ? writeMailLine : writeSecureLine)(out, numbers, {stamp, text.c_str(), user.c_str(), failed});
  }
  return std::fclose(out) == 0 ? 0 : 1;
}

int scan(char** arguments, bool countsAll) {
  Config conf(nullptr);
  const std::string folder = arguments[2];
  conf.serverpath = folder.c_str();
  conf.admindir = folder.c_str();
  conf.templates = folder.c_str();
  conf.brute_force_log_scanner = 1;
  (std::string(arguments[4]) == "mail" ? conf.brute_force_mail_log : conf.brute_force_secure_log) = arguments[3];
  conf.brute_force_ignore_attempts_on_suspended = !countsAll;
  // Whom to tell, and how, is not what is measured.
  conf.ip_brutecount = conf.user_brutecount = 2'000'000'000;
  useConfiguration(&conf);
  check_brute_force_logs(&conf);
  useConfiguration(nullptr);
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  const std::string what = count > 1 ? arguments[1] : "";
  if (what == "make" && count == 8) return make(arguments);
  return what == "scan" && (count == 5 || count == 6) ? scan(arguments, count == 6) : 2;
}
