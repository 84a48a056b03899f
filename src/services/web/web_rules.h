// What of an account's data may stand in a web server's configuration: values that cannot be told from an attempt to
// leave their place may not.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zvtaskq {

/// Whether a path is absolute and made of characters that no server reads as anything but a path's.
bool isPlainPath(std::string_view path);

/// Why a piece of configuration of a site's own may not be put into the site's; empty when it may. Whether it means
/// anything is for the server to say: this only sees to it that it ends where it began, sections, quotes and the lines
/// that go on included.
std::string whyNoNginxPiece(std::string_view text);
std::string whyNoApachePiece(std::string_view text);

/// A line of ".handlers" or ".mime.types", "name=.ending .ending", as "name .ending .ending"; empty when it is none.
std::string endingsOf(std::string_view name, std::string_view endings);

/// The lines of a text, without line feeds.
std::vector<std::string> linesOf(std::string_view text);

}  // namespace zvtaskq
