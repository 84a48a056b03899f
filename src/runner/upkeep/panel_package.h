// A package of the panel: fetched to a place where root alone can change it, and judged before root does anything with
// it.
#pragma once

#include <string>

#include "core/sys/sys.h"
#include "core/text/text.h"

namespace zvtaskq {

/// What the package is called.
inline constexpr const char* kPackageName = "zvtaskq";

/// The place of an update, "<serverpath>/data/update": root's, and held by one process at a time.
class UpdateFolder {
 public:
  /// Makes it when it is missing, and takes it. 0 with the reason in `why`. Works as root, as all of these.
  [[nodiscard]] int take(std::string& why);
  std::string path(const char* file) const;
  /// Writes a file that everybody may read. 0 with the reason in `why`.
  [[nodiscard]] int put(const char* file, const std::string& content, std::string& why) const;

 private:
  Descriptor folder_;
};

/// Reads a file of the administrator's, or fetches a URL: of https, or of http on this machine, as nobody. A name and
/// password in it are seen by no other process, and stand in no message. 0 with the reason in `why`; then `isMissing`
/// says that there is none, or of a URL that the server answers with an error.
[[nodiscard]] int fetchPart(const std::string& source, std::string& content, bool& isMissing, std::string& why);
/// A file or URL as it may be shown: without the name and password of a URL.
std::string shownSource(const std::string& source);
/// Whether it names a URL, of whatever kind.
bool isUrl(const std::string& source);
/// Whether it is fetched from another machine.
bool isRemote(const std::string& source);

/// Opens a key as it is: of root or the panel, and nobody else may change it. 0 with the reason in `why`.
[[nodiscard]] int readKey(const std::string& path, std::string& content, std::string& why);

/// What a package says of itself.
struct PackageFields {
  std::string name;
  std::string version;
};
/// Asks the package tool, as nobody. 0 with the reason in `why`.
[[nodiscard]] int readPackage(const std::string& path, PackageFields& fields, std::string& why);
/// The program's version in that of a package: without the distribution's part.
std::string programVersionOf(const std::string& packageVersion);
/// The version of the panel's package that is installed; empty when none is.
std::string presentVersion();
/// Whether it is newer than what is installed: the package, or when the program was not installed as one, the program
/// itself.
bool isNewerPackage(const PackageFields& fields);

/// Whether the signature is that of the key alone, by gpgv, as nobody. All three stand in the update's folder. Why not;
/// empty when it is.
std::string whyNotSigned(const UpdateFolder& folder, const char* package, const char* signature, const char* key);
/// A key as gpgv takes it: what is armoured is decoded. Empty when it cannot be.
std::string plainKey(const std::string& content);

}  // namespace zvtaskq
