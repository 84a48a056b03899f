// Prints the sample configuration or the manual page of zorvane.conf, from the rows that the program itself is made of.
//
//   settings_pages sample | man
//
// Both results are kept in share/; the build target update_settings_pages writes them anew.
#include <cstdio>
#include <string>
#include <string_view>

namespace {

struct Row {
  /// Set for the heading of a group, whose other fields are null.
  const char* group = nullptr;
  const char* kind = nullptr;
  const char* key = nullptr;
  const char* field = nullptr;
  const char* text = nullptr;
  const char* layer = nullptr;
  const char* example = nullptr;
  const char* unit = nullptr;
  const char* meaning = nullptr;

  /// The row fills another key's field: it is kept for old files.
  bool isOldName() const { return std::string_view(key) != field; }
};

constexpr Row kRows[] = {
#define GROUP(title) {.group = title},
#define SETTING(kind, key, field, value, text, layer, example, unit, meaning) \
  {nullptr, #kind, #key, #field, text, #layer, example, unit, meaning},
#include "core/config/settings.def"
};

struct KindName {
  std::string_view kind;
  const char* shown;
};
constexpr KindName kKindNames[] = {
    {"Int", "number"},          {"Flag", "flag"},  {"Text", "text"},          {"Ulong", "unsigned number"},
    {"U64", "unsigned number"}, {"I64", "number"}, {"Char", "one character"}, {"Double", "decimal number"}};

const char* shownKind(const Row& row) {
  for (const KindName& name : kKindNames) {
    if (name.kind == row.kind) return name.shown;
  }
  return row.kind;
}

void printSample() {
  std::fputs(
      "# zorvane.conf: the panel's main configuration.\n"
      "#\n"
      "# One name=value a line, without blanks around the \"=\". A line that begins with \"#\" or a blank is a "
      "comment.\n"
      "# The last line needs a line feed at its end, as all others. The file belongs to the user zvadmin.\n"
      "#\n"
      "# What is set below is what an installation has to choose; everything else shows its default. The task queue\n"
      "# reads this file anew each time it starts. See also zorvane.conf(5).\n",
      stdout);
  for (const Row& row : kRows) {
    if (row.group != nullptr) {
      std::printf("\n\n# ---- %s ----\n", row.group);
    } else if (!row.isOldName()) {
      std::printf("\n# %s", row.meaning);
      if (row.unit != nullptr) std::printf(" (%s)", row.unit);
      std::printf(row.example == nullptr ? "\n#%s=%s\n" : "\n%s=%s\n", row.key,
                  row.example != nullptr ? row.example : (row.text != nullptr ? row.text : ""));
    }
  }
}

/// The text as a manual page spells it.
std::string escaped(std::string_view text) {
  std::string page;
  for (const char c : text) {
    if (c == '\\') {
      page += "\\e";
    } else {
      if (c == '-') page += '\\';
      page += c;
    }
  }
  return page;
}

void printSetting(const Row& row) {
  std::printf(".TP\n.B %s\n%s\n(%s", row.key, escaped(row.meaning).c_str(), shownKind(row));
  if (row.unit != nullptr) std::printf(", %s", row.unit);
  if (row.text == nullptr) {
    std::printf("; no default)\n");
  } else {
    const bool whenEmpty = std::string_view(row.layer) == "WhenEmpty";
    std::printf("; default %s%s)\n", escaped(row.text).c_str(), whenEmpty ? ", also when empty" : "");
  }
}

void printManualPage() {
  std::fputs(
      ".\\\" Made from src/core/config/settings.def by dev/settings_pages.cpp.\n"
      ".TH ZORVANE.CONF 5 \"\" \"Zorvane\" \"Zorvane panel\"\n"
      ".SH NAME\n"
      "zorvane.conf \\- main configuration of the panel\n"
      ".SH DESCRIPTION\n"
      "The panel's programs read this file when they start;\n"
      ".BR zvtaskq (8)\n"
      "starts once a minute, so that a change holds from the next minute on. Nothing writes it back.\n"
      ".PP\n"
      "Each line is\n"
      ".IR name = value .\n"
      "Nothing is trimmed: blanks around the \"=\" belong to the name and the value. A line that begins with \"#\" or "
      "a\n"
      "blank is a comment. A last line without a line feed is not read. Of a name given twice the later line counts.\n"
      ".PP\n"
      "A flag is on for any number but 0. A number left empty, or no number at all, leaves the default; a text left "
      "empty\n"
      "is an empty text, unless its default is taken also then.\n"
      "The file is read as the user zvadmin, who must exist and be able to read it.\n"
      ".SH SETTINGS\n",
      stdout);
  for (const Row& row : kRows) {
    if (row.group != nullptr) {
      std::printf(".SS %s\n", escaped(row.group).c_str());
    } else {
      printSetting(row);
    }
  }
  std::fputs(
      ".SH FILES\n"
      ".I /usr/local/zorvane/conf/zorvane.conf\n"
      ".br\n"
      ".I /usr/local/zorvane/conf/zorvane.conf.sample\n"
      ".SH SEE ALSO\n"
      ".BR zvtaskq (8)\n",
      stdout);
}

}  // namespace

int main(int count, char** arguments) {
  const std::string_view page = count == 2 ? arguments[1] : "";
  if (page == "sample") {
    printSample();
  } else if (page == "man") {
    printManualPage();
  } else {
    std::fputs("usage: settings_pages sample | man\n", stderr);
    return 2;
  }
  return std::fflush(stdout) == 0 ? 0 : 1;
}
