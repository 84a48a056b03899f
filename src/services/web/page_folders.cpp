#include "services/web/page_folders.h"

#include <limits.h>
#include <unistd.h>

#include <cerrno>

#include "core/sys/privileges.h"
#include "core/text/text.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

constexpr const char* kPublic = "public_html";
constexpr const char* kPrivate = "private_html";

std::string below(const std::string& domain, const char* folder) {
  return joined("domains/", domain, "/", folder);
}

bool leadsToPublic(const Descriptor& link) {
  char target[PATH_MAX];
  const ssize_t length = ::readlinkat(link.get(), "", target, sizeof target);
  const std::string_view text(target, length < 0 ? 0 : static_cast<std::size_t>(length));
  return text == "./public_html" || text == kPublic;
}

}  // namespace

PageFolders::PageFolders(std::string home) : home_(std::move(home)) {
  const AsRoot root;
  folder_ = Descriptor(sys::open(home_.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW));
}

PageFolders::Kind PageFolders::kindOf(const std::string& path) const {
  if (!folder_) return Kind::missing;
  const AsRoot root;
  const Descriptor found = openBeneath(folder_.get(), path.c_str(), O_PATH | O_DIRECTORY);
  if (found) return Kind::folder;
  if (errno == ENOENT) return Kind::missing;
  return errno == ELOOP || errno == ENOTDIR ? Kind::link : Kind::unreachable;
}

int PageFolders::find(const std::string& domain, std::string& folder, std::string& why) const {
  const std::string path = below(domain, kPublic);
  folder = joined(home_, "/", path);
  const Kind kind = kindOf(path);
  if (kind == Kind::folder || kind == Kind::missing) return 1;
  why = "it is no folder, or the way to it leads over a link";
  return 0;
}

int PageFolders::findSecure(const std::string& domain, std::string& folder, std::string& why) const {
  const std::string path = below(domain, kPrivate);
  const Kind kind = kindOf(path);
  folder = joined(home_, "/", kind == Kind::folder ? path : below(domain, kPublic));
  if (kind == Kind::folder || kind == Kind::missing) return 1;
  const AsRoot root;
  const Descriptor parent = openBeneath(folder_.get(), joined("domains/", domain).c_str(), O_PATH | O_DIRECTORY);
  const Descriptor link(parent ? sys::openat(parent.get(), kPrivate, O_PATH | O_NOFOLLOW) : -1);
  if (link && leadsToPublic(link)) return 1;
  why = "it is neither a folder nor a link to ./public_html";
  return 0;
}

int PageFolders::findBelow(const std::string& domain, const std::string& subdomain, std::string& why) const {
  const Kind kind = kindOf(joined(below(domain, kPublic), "/", subdomain));
  if (kind == Kind::folder || kind == Kind::missing) return 1;
  why = "it is no folder, or the way to it leads over a link";
  return 0;
}

}  // namespace zvtaskq
