// The template of web sites, filled for one site after another.
//
// What a template asks for is one of few combinations of flags. For each that is met the Tokenizer makes a shape: the
// template's definitions and conditions settled, the values of sites still open. They are put in afterwards, and no
// value is ever read as a template.
#pragma once

#include <array>
#include <map>
#include <string>
#include <vector>

#include "core/text/text.h"
#include "services/web/web_tokens.h"

namespace zvtaskq {

/// The values of a site's tokens. Those of one line have one value, or none, which is empty.
class SiteValues {
 public:
  std::vector<std::string>& operator[](WebToken token) { return all_[static_cast<std::size_t>(token)]; }
  const std::vector<std::string>& operator[](WebToken token) const { return all_[static_cast<std::size_t>(token)]; }

 private:
  std::array<std::vector<std::string>, kWebTokenCount> all_;
};

class SiteTemplate {
 public:
  /// Reads a file of the templates, the administrator's own before ours, and with it the tokens of
  /// `global_httpd_tokens`. 0 with why in `result`.
  [[nodiscard]] int read(const char* file, Text& result);
  /// Adds the template, filled for a site, to `text`. 0 with why in `result`: a token that there is not, or two lists
  /// in a line.
  [[nodiscard]] int fill(unsigned flags, const SiteValues& values, std::string& text, Text& result);

 private:
  struct Piece {
    std::string text;
    /// What follows the text; `kWebTokenCount` for nothing.
    std::size_t token = kWebTokenCount;
  };
  struct Line {
    std::vector<Piece> pieces;
    std::size_t list = kWebTokenCount;
  };
  using Shape = std::vector<Line>;

  [[nodiscard]] int makeShape(unsigned flags, Shape& shape, Text& result) const;
  [[nodiscard]] int takeLine(std::string_view text, Shape& shape, Text& result) const;

  std::string path_;
  std::string text_;
  std::vector<std::pair<std::string, std::string>> global_;
  std::map<unsigned, Shape> shapes_;
};

}  // namespace zvtaskq
