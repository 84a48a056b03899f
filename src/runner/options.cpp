#include "runner/options.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

constexpr std::string_view kConfigOption = "--config";
constexpr std::string_view kCustomBuildOption = "--custombuild";
/// Not in the usage: who installs a package asks for it.
constexpr std::string_view kVersionOption = "--version";
/// The option's name and the character behind it, whatever that is.
constexpr std::size_t kConfigSkipped = 9;
constexpr int kPlainDebugLevel = 10;

constexpr const char* kUsage[] = {
    "\t%s\t\t\t\t\t\t:normal\n",
    "\t%s d\t\t\t\t\t\t:debug level 10\n",
    "\t%s d#\t\t\t\t\t\t:debug level # (eg, d20)\n",
    "\t%s --config=/path/to/zorvane.conf\t\t:specify config\n",
    "\t%s --custombuild\t\t\t:only scan the task.queue.cb. Skip all other tasks.\n",
};

[[noreturn]] void showUsage(const char* program) {
  std::printf("Usage:\n");
  for (const char* line : kUsage) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::printf(line, program);
#pragma GCC diagnostic pop
  }
  std::exit(0);
}

/// The level that "d20" asks for; the plain one for "d" alone and for anything else behind it.
int debugLevelOf(std::string_view digits) {
  long long level = 0;
  for (const char c : digits) {
    if (c < '0' || c > '9') return kPlainDebugLevel;
    level = level * 10 + (c - '0');
    if (level > INT_MAX) level = INT_MAX;
  }
  return digits.empty() ? kPlainDebugLevel : static_cast<int>(level);
}

}  // namespace

void setup_dash_options(const char* option, Config& conf) {
  const std::string_view text(option);
  if (text.empty()) return;
  if (text.starts_with(kConfigOption)) {
    conf.setFilename(text.size() > kConfigSkipped ? option + kConfigSkipped : "");
    if (conf.readFile()) return;
    std::printf("Error reading new config: %s\n", conf.getFilename());
    std::exit(0);
  }
  if (text.starts_with(kCustomBuildOption)) {
    runFlags.customBuild = true;
    debug(1000, "Only processing %s", conf.taskqueuecb.orEmpty());
    return;
  }
  std::printf("Invalid option: %s\n", option);
  std::exit(0);
}

bool asksVersion(int count, char** arguments) {
  return std::any_of(arguments + std::min(count, 1), arguments + count,
                     [](const char* argument) { return argument == kVersionOption; });
}

int showVersion() {
  const Config unread(nullptr);
  return std::printf("%s\n", unread.version) > 0 && std::fflush(stdout) == 0 ? 0 : 1;
}

Options parseArguments(int count, char** arguments, Config& conf) {
  Options options;
  for (int i = 1; i < count; ++i) {
    const char* argument = arguments[i];
    switch (argument[0]) {
      case 'd':
        options.dodebug = 1;
        setDebugLevel(debugLevelOf(argument + 1));
        break;
      case 'h':
        showUsage(arguments[0]);
      case '-':
        setup_dash_options(argument, conf);
        break;
      default:
        break;
    }
  }
  return options;
}

}  // namespace zvtaskq
