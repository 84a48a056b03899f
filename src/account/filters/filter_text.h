// A domain's mail filter, made of its settings and the template.
#pragma once

#include <string>
#include <vector>

#include "core/record/config_file.h"
#include "core/text/text.h"

namespace zvtaskq {

/// What an account may want of a filter, by its record; what is 0 or empty is not wanted.
struct FilterSettings {
  /// Takes them from a record, "<domain>.filter". 0 when a value is none that it can have, with the key and why in
  /// `result`: nothing of a record reaches a filter but numbers and words of a small alphabet.
  [[nodiscard]] int read(const ConfigFile& record, Text& result);
  /// For an account without the feature.
  void dropSpam() {
    highScore = 0;
    action.clear();
  }
  bool isEmpty() const { return megabytes == 0 && words.empty() && highScore == 0 && action.empty(); }

  long long megabytes = 0;
  std::vector<std::string> words;
  long long score = 0;
  long long highScore = 0;
  /// "folder", "drop" or empty.
  std::string action;
};

class FilterTemplate {
 public:
  /// Reads the template, and lets Exim judge a filter of it that has everything, as far as Exim is there. 0 with why in
  /// `result`: the filters stay as they are then.
  [[nodiscard]] int read(Text& result);
  [[nodiscard]] int fill(const std::string& domain, const FilterSettings& settings, std::string& text,
                         Text& result) const;

 private:
  [[nodiscard]] int judge(Text& result) const;

  std::string path_;
  std::string text_;
};

}  // namespace zvtaskq
