// What an administrator may put in the place of what the panel ships: a file of the same name in the folder "custom"
// beside it. Looked up as root, under any identity, which is the same afterwards.
#pragma once

#include <string>

namespace zvtaskq {

class Config;

/// "<folder>/custom/<name>" when there is such a thing, else "<folder>/<name>".
std::string customOrStock(const std::string& folder, const char* name);

/// The template, list or set of filters of that name.
std::string templatePath(const Config& conf, const char* file);
/// The script of that name, of the administrator's or ours.
std::string scriptPath(const Config& conf, const char* script);
/// The hook of that name: a script that only an administrator makes.
std::string hookPath(const Config& conf, const char* script);
/// Whether that hook is there.
bool hookExists(const Config& conf, const char* script);

}  // namespace zvtaskq
